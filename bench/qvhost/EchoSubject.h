// SPDX-License-Identifier: Apache-2.0

// Measures the bare sockets, with requests and answers as long as the host's.
#ifndef QV_BENCH_ECHO_SUBJECT_H
#define QV_BENCH_ECHO_SUBJECT_H

#include <string>
#include <vector>

#include "FrameConnection.h"
#include "HostSubject.h"
#include "Subject.h"
#include "support/Places.h"

namespace qv::bench {

class EchoSubject : public Subject {
  public:
    EchoSubject(HostSubject& host, int threads);

    void hold(int count) override { host_.hold(count); }
    std::vector<std::string> requests(Work work, int client) override;
    std::string ask(const std::string& request) override { return connection_.ask(request); }
    const std::string& path() const override { return path_; }
    const ServerProcess& process() const override { return process_; }

  private:
    HostSubject& host_;
    Place place_{Place::Kind::Memory};
    std::string path_ = place_.path("echo.sock");
    ServerProcess process_;
    FrameConnection connection_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_ECHO_SUBJECT_H
