// SPDX-License-Identifier: Apache-2.0

// Carries out the requests of clients. Listings, finds and the like are answered at once, from the
// newest snapshot. Changes go to the recorder, levels and syncs to the follower.
//
// A conversation reads a request, begins it here and, if the answer comes later, waits for it. The
// requests of one client are answered in their order.
#ifndef QVHOST_SERVER_COMMANDS_H
#define QVHOST_SERVER_COMMANDS_H

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "server/AnswerQueue.h"
#include "server/Counts.h"
#include "server/DirectoryReader.h"
#include "server/Door.h"
#include "server/Follower.h"
#include "server/FrameReader.h"
#include "server/Recorder.h"

namespace qv::host {

// Who makes a request.
struct Asker {
    uid_t user = 0;
    std::size_t longestRequest = 0;  // that the host takes of the client, without its header
    DirectoryReader& directory;      // of the client's thread
};

class Commands {
  public:
    // `status` returns the serialised status of the host. Any thread may call it. `version` is that
    // of the host. Counts requests and refusals in `counts`.
    Commands(Recorder& recorder, Follower& follower, Counts& counts,
             std::function<std::string()> status, std::string version);

    static bool isChange(const Frame& request);

    // A subscription is none of the requests below. It takes the whole connection.
    static bool isSubscription(const Frame& request);

    // Tells whether the answer to a request that is no change may come later.
    static bool mayTakeLong(const Frame& request);

    // Adds a change to a batch, which the caller submits later. If the batch is empty and the
    // answer is known at once, appends the answer to `answers` instead: the door refuses the
    // request, or the request changes nothing. `newest` is the recorder's newest state. Throws
    // std::bad_alloc.
    void addChange(const Frame& request, const Recorder::State& newest, ChangeBatch& batch,
                   AnswerQueue& answers);

    void submit(std::shared_ptr<ChangeBatch> batch);

    // Carries out a request that is no change. Returns true and appends the answer if it is known
    // at once. Otherwise returns false and calls `later` once with the answer, on another thread.
    // `later` may be empty if mayTakeLong() is false. Throws std::bad_alloc.
    bool answer(const Frame& request, const Asker& asker, AnswerQueue& answers,
                Follower::Answer later);

  private:
    std::string hello(const Asker& asker) const;
    void find(const Frame& request, const Asker& asker, AnswerQueue& answers);

    Recorder& recorder_;
    Follower& follower_;
    Counts& counts_;
    std::function<std::string()> status_;
    const std::string version_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_COMMANDS_H
