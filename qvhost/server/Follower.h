// SPDX-License-Identifier: Apache-2.0

// Keeps the plug-in and its file up with the directory. One thread owns the plug-in: the thread
// starts the plug-in, sends the difference to the newest snapshot, reads the file back, sets
// levels, reloads and ends the plug-in. Nobody else calls the plug-in.
//
// The plug-in saves in place, in one write, and tells nobody whether that worked. So the record is
// the host's truth, and the file follows it: the next turn comes a second after the last one, or
// three times as long as the last one took. A turn that fails is repeated at growing intervals.
// FollowedPlugin.h tells what a turn does.
#ifndef QVHOST_SERVER_FOLLOWER_H
#define QVHOST_SERVER_FOLLOWER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "server/Door.h"
#include "server/Pace.h"
#include "server/Plugin.h"
#include "server/Recorder.h"
#include "server/StoredFile.h"

namespace qv::host {

class Follower {
  public:
    // For the status of the host. The file lags if its revision is not the newest one.
    struct Statistics {
        int64_t fileRevision = 0;
        std::string problem;  // of the last turn; empty if it worked
        std::optional<std::chrono::system_clock::time_point> behindSince;
        uint64_t saves = 0;  // turns that brought the file up
        std::chrono::microseconds longest{0};
        std::optional<std::chrono::steady_clock::time_point> since;  // of the turn under way
        std::string start;             // what the last start or reload did, in one line
        std::optional<int32_t> level;  // that a client set since then
    };

    // Called once with the answer, on the follower's thread. After stop() it is called at once,
    // with QV_HOST_ERROR_STOPPING. Must not throw.
    using Answer = std::function<void(Outcome)>;

    // `initialize` initialises the plug-in. It may throw std::exception. `report` takes lines for
    // the journal.
    Follower(Plugin& plugin, StoredFile file, Recorder& recorder, std::function<void()> initialize,
             const Recorder::Report& report, const Pace::Settings& pace);
    Follower(Plugin& plugin, StoredFile file, Recorder& recorder, std::function<void()> initialize,
             const Recorder::Report& report);
    ~Follower();

    Follower(const Follower&) = delete;
    Follower& operator=(const Follower&) = delete;

    // Decides whether record or file counts, starts the plug-in and brings it up to the directory.
    // Returns when that is done and the thread runs. Throws std::exception if the plug-in cannot be
    // started.
    void start();

    // Any thread may call the following. None of them waits. The last three throw std::bad_alloc.

    // Tells that the recorder published a snapshot.
    void published() noexcept;

    // Starts the plug-in again as start() does. `done` takes an empty text, or the problem. Several
    // reloads that wait are one. If the plug-in cannot be started, the thread tries it again.
    void reload(std::function<void(std::string problem)> done);

    // Answers when the file holds the directory of now, or says why it does not.
    void sync(Answer answer);

    // Has the plug-in execute the set-debug-level command. The level holds until a reload.
    void setLevel(std::string input, Answer answer);

    Statistics statistics() const;

    // Lets the file catch up, finalises the plug-in and ends the thread. Call it when no thread
    // submits changes any more, and before the recorder is stopped. Waits.
    void stop();

  private:
    class Work;

    std::unique_ptr<Work> work_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_FOLLOWER_H
