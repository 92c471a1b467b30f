// SPDX-License-Identifier: Apache-2.0

// Encodes requests to rpcbind over a stream and decodes its answers, by version 4 of its protocol,
// RFC 1833, in messages of RFC 5531.
#ifndef QV_BENCH_RPC_MESSAGES_H
#define QV_BENCH_RPC_MESSAGES_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace qv::bench::rpc {

// A message consists of records. A mark before each record tells its length and whether it is the
// last.
constexpr std::size_t kMarkSize = 4;

struct Mark {
    std::size_t length = 0;
    bool last = false;
};

Mark markOf(const std::string& bytes);

// These return calls with their marks. Programs count from 0.
std::string nothing();
std::string dump();
std::string set(int program, const std::string& address);
std::string unset(int program);

// These read answers without their marks: whether the call was carried out, whether set() or
// unset() succeeded, and how many programs dump() returns. Each throws std::runtime_error for an
// answer that is cut short.
bool isAccepted(const std::string& answer);
bool isTrue(const std::string& answer);
int countOf(const std::string& answer);

}  // namespace qv::bench::rpc

#endif  // QV_BENCH_RPC_MESSAGES_H
