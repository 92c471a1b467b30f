// What rpcbind is asked over a stream, and what it answers: version 4 of its protocol, RFC 1833, in
// messages of RFC 5531.
#ifndef QV_BENCH_RPC_MESSAGES_H
#define QV_BENCH_RPC_MESSAGES_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace qv::bench::rpc {

// Each message comes in records, each after a mark that says how long it is and whether it is the
// last.
constexpr std::size_t kMarkSize = 4;

struct Mark {
    std::size_t length = 0;
    bool last = false;
};

Mark markOf(const std::string& bytes);

// Calls, with their marks. Programs count from 0.
std::string nothing();
std::string dump();
std::string set(int program, const std::string& address);
std::string unset(int program);

// Of answers without their marks; each throws std::runtime_error when it is cut. Whether the call
// was carried out; whether set() or unset() did what it was to do; how many programs dump() has.
bool isAccepted(const std::string& answer);
bool isTrue(const std::string& answer);
int countOf(const std::string& answer);

}  // namespace qv::bench::rpc

#endif  // QV_BENCH_RPC_MESSAGES_H
