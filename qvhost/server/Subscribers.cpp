// SPDX-License-Identifier: Apache-2.0

#include "server/Subscribers.h"

#include <algorithm>
#include <asio/post.hpp>
#include <utility>

namespace qv::host {

namespace {

// The pause after a round is so often as long as the round, up to a bound.
constexpr int kPauseFactor = 9;
constexpr std::chrono::milliseconds kLongestPause(1000);

}  // namespace

Subscriber::Subscriber(Subscribers& subscribers) : subscribers_(subscribers) {
    subscribers_.add(*this);
}

Subscriber::~Subscriber() {
    subscribers_.remove(*this);
}

void Subscribers::add(Subscriber& subscriber) {
    subscriber.next_ = first_;
    if (first_ != nullptr) {
        first_->previous_ = &subscriber;
    }
    first_ = &subscriber;
    ++count_;
}

void Subscribers::remove(Subscriber& subscriber) {
    if (next_ == &subscriber) {
        next_ = subscriber.next_;
    }
    (subscriber.previous_ == nullptr ? first_ : subscriber.previous_->next_) = subscriber.next_;
    if (subscriber.next_ != nullptr) {
        subscriber.next_->previous_ = subscriber.previous_;
    }
    --count_;
}

void Subscribers::tell() noexcept {
    if (count_ != 0 && !isTold_.exchange(true)) {
        // The memory is free: the handler has given it back before the thread can be told again.
        asio::post(pause_.get_executor(), tellMemory_.keep([this] { awaitRound(); }));
    }
}

void Subscribers::awaitRound() {
    if (Clock::now() >= pausedUntil_) {
        round();
        return;
    }
    pause_.expires_at(pausedUntil_);
    pause_.async_wait(pauseMemory_.keep([this](const asio::error_code& /*error*/) { round(); }));
}

void Subscribers::round() {
    // What is published from now on needs another round.
    isTold_ = false;
    const Clock::time_point begin = Clock::now();
    bool isLeft = false;
    for (Subscriber* subscriber = first_; subscriber != nullptr; subscriber = next_) {
        next_ = subscriber->next_;
        isLeft = subscriber->takeEvents() || isLeft;
    }
    const Clock::time_point end = Clock::now();
    pausedUntil_ = end + std::min<Clock::duration>(kPauseFactor * (end - begin), kLongestPause);
    if (isLeft) {
        tell();
    }
}

}  // namespace qv::host
