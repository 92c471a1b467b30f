// SPDX-License-Identifier: Apache-2.0

// Tells the subscribers of one thread that there are new events. The recorder tells the thread, at
// most once until the thread has a round, in which each subscriber takes what it has not seen yet.
//
// A round is followed by a pause that is several times as long. So many subscribers leave the
// thread to the other clients most of the time, and each of them gets several events at once. A few
// subscribers get their events at once.
#ifndef QVHOST_SERVER_SUBSCRIBERS_H
#define QVHOST_SERVER_SUBSCRIBERS_H

#include <asio/steady_timer.hpp>
#include <atomic>
#include <chrono>
#include <cstddef>

#include "server/HandlerMemory.h"

namespace qv::host {

class Subscribers;

// Is one of the thread's subscribers for as long as it lives. Only the thread may make and destroy
// it.
class Subscriber {
  public:
    explicit Subscriber(Subscribers& subscribers);
    virtual ~Subscriber();

    Subscriber(const Subscriber&) = delete;
    Subscriber& operator=(const Subscriber&) = delete;

  private:
    friend class Subscribers;

    // Takes new events. Returns true if some are left that it could take now.
    virtual bool takeEvents() noexcept = 0;

    Subscribers& subscribers_;
    Subscriber* previous_ = nullptr;
    Subscriber* next_ = nullptr;
};

class Subscribers {
  public:
    // Uses the timer, whose context is that of the thread, from the first subscriber on. The object
    // must outlive the context, which may hold the last subscribers.
    explicit Subscribers(asio::steady_timer& pause) : pause_(pause) {}
    ~Subscribers() = default;

    Subscribers(const Subscribers&) = delete;
    Subscribers& operator=(const Subscribers&) = delete;

    // Has a round begin soon, if there are subscribers. Any thread may call this.
    void tell() noexcept;

    // Any thread may call this.
    std::size_t count() const { return count_; }

  private:
    friend class Subscriber;

    using Clock = asio::steady_timer::clock_type;

    void add(Subscriber& subscriber);
    void remove(Subscriber& subscriber);
    void awaitRound();
    void round();

    HandlerMemory tellMemory_;
    HandlerMemory pauseMemory_;
    asio::steady_timer& pause_;
    Clock::time_point pausedUntil_;
    std::atomic<bool> isTold_ = false;
    std::atomic<std::size_t> count_ = 0;
    Subscriber* first_ = nullptr;
    Subscriber* next_ = nullptr;  // in the round
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_SUBSCRIBERS_H
