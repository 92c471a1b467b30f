// SPDX-License-Identifier: Apache-2.0

// Keeps the newest changes of the directory for the clients that subscribe to it. The recorder
// appends one event for each commit. A subscriber has a revision, its position, and takes the
// events that follow:
//
//     std::array<EventPointer, 16> events;
//     std::optional<std::size_t> count = history.after(position, events.data(), events.size());
//     if (!count) ...  // the events that follow are gone: send the newest snapshot instead
//
// So a subscriber that reads slowly costs no memory, and all subscribers share the events.
//
// Each run of the host has a random number, its epoch, because a run that is killed may have told
// of revisions that the record does not hold. The next run makes other changes under the same
// revisions.
#ifndef QVHOST_SERVER_HISTORY_H
#define QVHOST_SERVER_HISTORY_H

#include <QvSystem/ThreadSafety.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/Questions.h"
#include "server/Snapshot.h"

namespace qv::host {

// A longer event is not kept. The subscribers get a snapshot instead, which they share.
constexpr std::size_t kLongestEvent = std::size_t{64} * 1024;

// One commit. An event never changes, so any number of threads may read it.
class Event {
  public:
    // Returns the event of a commit. Returns null if it is too long or there is no memory for it,
    // because nobody may lose a change for those who subscribed to it. `before` is the directory
    // that the edits change.
    static std::shared_ptr<const Event> of(const Edits& edits, const Snapshot& before,
                                           uint64_t epoch, int64_t revision) noexcept;

    // Returns the end of any event, which names its revision.
    static std::string end(uint64_t epoch, int64_t revision, bool isSnapshot = false);

    int64_t revision() const { return revision_; }

    // Returns a serialised HostEvent of QvHost.proto.
    std::string_view bytes() const { return bytes_; }

    // Returns the same with these services only, or nothing if the commit touches none of them.
    // Throws std::bad_alloc.
    std::string bytesOf(const Identifiers& ids) const;

    // Returns about how much memory the event takes.
    std::size_t memory() const;

  private:
    // The bytes of one service, which begin where those of the service before end.
    struct Part {
        int32_t id;
        uint32_t end;
    };

    int64_t revision_ = 0;
    std::string bytes_;
    std::vector<Part> parts_;
};

using EventPointer = std::shared_ptr<const Event>;

class History {
  public:
    struct Bounds {
        std::size_t events = 4096;
        // In bytes. Under many changes a shorter history costs more time: subscribers that pause
        // fall out of it, and a snapshot is longer than the events of a pause.
        std::size_t memory = std::size_t{4} * 1024 * 1024;
    };

    // `epoch` is that of this run. Throws std::bad_alloc.
    explicit History(uint64_t epoch, const Bounds& bounds);
    explicit History(uint64_t epoch) : History(epoch, Bounds()) {}

    // Returns a random number for a run, which is never 0. Throws std::runtime_error if the system
    // has none.
    static uint64_t newEpoch();

    uint64_t epoch() const { return epoch_; }

    // Begins with the directory that the record holds. The last run, which wrote it, had this
    // epoch; 0 if there was none. Call it once, before anything else.
    void begin(uint64_t lastEpoch, int64_t revision);

    // Appends the event of the next revision. Without an event, all subscribers start over.
    void append(int64_t revision, EventPointer event) noexcept;

    // Returns the position of a client that received this event last, or nothing if nobody knows
    // what the directory was then. Any thread may call this and the next function.
    std::optional<int64_t> positionOf(const SubscriptionWish::Event& last) const;

    // Copies the events that follow the revision, `most` at most. Returns how many, or nothing if
    // they are gone.
    std::optional<std::size_t> after(int64_t revision, EventPointer* events,
                                     std::size_t most) const;

  private:
    EventPointer& placeOf(int64_t revision) QV_REQUIRES(mutex_);
    void dropOldest() QV_REQUIRES(mutex_);

    const uint64_t epoch_;
    const Bounds bounds_;
    uint64_t lastEpoch_ = 0;
    int64_t firstRevision_ = 0;

    mutable system::Mutex mutex_;
    // The events from oldest_ + 1 to newest_, each in the place that its revision gives.
    std::vector<EventPointer> events_ QV_GUARDED_BY(mutex_);
    int64_t oldest_ QV_GUARDED_BY(mutex_) = 0;
    int64_t newest_ QV_GUARDED_BY(mutex_) = 0;
    std::size_t memory_ QV_GUARDED_BY(mutex_) = 0;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_HISTORY_H
