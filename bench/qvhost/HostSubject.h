// Measures the resident host, with its files in memory.
#ifndef QV_BENCH_HOST_SUBJECT_H
#define QV_BENCH_HOST_SUBJECT_H

#include <string>
#include <vector>

#include "FrameConnection.h"
#include "Subject.h"
#include "support/Places.h"

namespace qv::bench {

class HostSubject : public Subject {
  public:
    explicit HostSubject(int threads);

    void hold(int count) override;
    std::vector<std::string> requests(Work work, int client) override;
    std::string ask(const std::string& request) override;
    const std::string& path() const override { return path_; }
    const ServerProcess& process() const override { return process_; }

  private:
    Place place_{Place::Kind::Memory};
    std::string path_ = place_.path("host.sock");
    ServerProcess process_;
    FrameConnection connection_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_HOST_SUBJECT_H
