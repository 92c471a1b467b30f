// rpcbind, the system's directory from program numbers to addresses, over its Unix socket. It has
// sockets of the benchmark's own, so that port 111 and /run/rpcbind.sock stay whose they are. Its
// lock it has in common with the system's one.
#ifndef QV_BENCH_RPCBIND_SUBJECT_H
#define QV_BENCH_RPCBIND_SUBJECT_H

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <string>
#include <vector>

#include "Subject.h"
#include "support/Places.h"

namespace qv::bench {

class RpcbindSubject : public Subject {
  public:
    // Throws std::exception when it does not start: it is not installed, another one runs, or the
    // benchmark has not the rights that it needs.
    RpcbindSubject();

    // Its own programs count.
    void hold(int count) override;
    std::vector<std::string> requests(Work work, int client) override;
    std::string ask(const std::string& request) override;
    const std::string& path() const override { return path_; }
    const ServerProcess& process() const override { return process_; }

  private:
    int count();
    // The answer with its marks goes to `whole`, which may be null, the one without is returned.
    std::string exchange(const std::string& request, std::string* whole);

    Place place_{Place::Kind::Memory};
    std::string path_ = place_.path("rpcbind.sock");
    ServerProcess process_;
    asio::io_context context_;
    asio::local::stream_protocol::socket socket_{context_};
    int ownCount_ = 0;
};

}  // namespace qv::bench

#endif  // QV_BENCH_RPCBIND_SUBJECT_H
