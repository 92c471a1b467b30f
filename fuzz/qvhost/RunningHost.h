// SPDX-License-Identifier: Apache-2.0

// Runs the core of the resident host: the record, and the follower with the plug-in. The follower
// works when it is told, or on its own thread.
#ifndef QV_FUZZ_RUNNING_HOST_H
#define QV_FUZZ_RUNNING_HOST_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "server/FollowedPlugin.h"
#include "server/Follower.h"
#include "server/Recorder.h"

namespace qv::fuzz {

// The input of a command that changes the directory.
struct Request {
    bool isRegistration = true;
    std::string bytes;
};

class RunningHost {
  public:
    // Opens the record. `published` is called on the recorder's thread. Throws what Recorder
    // throws.
    RunningHost(const std::string& file, bool hasThread, const host::Recorder::Report& report,
                std::function<void()> published);
    ~RunningHost() { stop(); }
    RunningHost(const RunningHost&) = delete;
    RunningHost& operator=(const RunningHost&) = delete;

    host::Recorder& recorder() { return recorder_; }

    // Start the plug-in. Return why the file does not hold the directory, or nothing if it does.
    std::string start();
    std::string reload();

    // Brings the file up and returns the same.
    std::string update();

    std::int64_t fileRevision() const;

    // Tells whether each change is followed at once.
    bool hasThread() const { return follower_ != nullptr; }

    // Makes the requests of one client and returns their answers.
    std::vector<host::Outcome> answersTo(const std::vector<Request>& requests);

    // Returns the services that the plug-in lists.
    static std::string listing();

    void stop();

  private:
    host::Recorder recorder_;
    std::unique_ptr<host::FollowedPlugin> followed_;
    std::unique_ptr<host::Follower> follower_;
};

}  // namespace qv::fuzz

#endif  // QV_FUZZ_RUNNING_HOST_H
