// SPDX-License-Identifier: Apache-2.0

// Measures the resident host, with its files in memory or on a disk.
#ifndef QV_BENCH_HOST_SUBJECT_H
#define QV_BENCH_HOST_SUBJECT_H

#include <string>
#include <vector>

#include "FrameConnection.h"
#include "Subject.h"
#include "support/Places.h"

namespace qv::bench {

// The default of `qvhost serve` on a small machine.
constexpr int kHostThreads = 2;

class HostSubject : public Subject {
  public:
    HostSubject(int threads, Place::Kind kind);

    void hold(int count) override;
    std::vector<std::string> requests(Work work, int client) override;
    std::string ask(const std::string& request) override;
    const std::string& path() const override { return path_; }
    const ServerProcess& process() const override { return process_; }

  private:
    std::string listing();

    Place place_;
    std::string path_ = place_.path("host.sock");
    ServerProcess process_;
    FrameConnection connection_;
    int held_ = 0;
};

}  // namespace qv::bench

#endif  // QV_BENCH_HOST_SUBJECT_H
