// SPDX-License-Identifier: Apache-2.0

// Measures rpcbind, the system's directory from program numbers to addresses, over its Unix socket.
// The benchmark gives rpcbind sockets of its own, so that port 111 and /run/rpcbind.sock stay with
// the system's rpcbind. Both share one lock file.
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
    // Throws std::exception if rpcbind does not start: it is not installed, another one runs, or
    // the benchmark lacks rights.
    RpcbindSubject();

    // Counts rpcbind's own programs as well.
    void hold(int count) override;
    std::vector<std::string> requests(Work work, int client) override;
    std::string ask(const std::string& request) override;
    const std::string& path() const override { return path_; }
    const ServerProcess& process() const override { return process_; }

  private:
    int count();
    // Returns the answer without its marks. Stores the answer with its marks in `whole` unless that
    // is null.
    std::string exchange(const std::string& request, std::string* whole);

    Place place_{Place::Kind::Memory};
    std::string path_ = place_.path("rpcbind.sock");
    ServerProcess process_;
    asio::io_context context_;
    asio::local::stream_protocol::socket socket_{context_};
    int ownCount_ = 0;
    int mostPrograms_ = 0;
};

}  // namespace qv::bench

#endif  // QV_BENCH_RPCBIND_SUBJECT_H
