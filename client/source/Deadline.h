// SPDX-License-Identifier: Apache-2.0

// Holds the time by which something has to be done, or no time.
#ifndef QV_CLIENT_DEADLINE_H
#define QV_CLIENT_DEADLINE_H

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>

namespace qv::client {

class Deadline {
  public:
    // Begins now.
    explicit Deadline(std::chrono::milliseconds timeout) {
        // A longer time would exceed the range of the clock.
        constexpr std::chrono::hours kLongest(24 * 365 * 100);
        if (timeout < kLongest) {
            end_ = Clock::now() + std::max(timeout, std::chrono::milliseconds(0));
        }
    }

    bool exists() const { return end_.has_value(); }

    bool hasPassed() const { return end_ && Clock::now() >= *end_; }

    // Returns the time left, rounded up, in the form that poll() takes: -1 means no deadline.
    int milliseconds() const {
        if (!end_) {
            return -1;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end_ - Clock::now());
        return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(
            left.count(), 0, std::numeric_limits<int>::max()));
    }

  private:
    using Clock = std::chrono::steady_clock;

    std::optional<Clock::time_point> end_;
};

}  // namespace qv::client

#endif  // QV_CLIENT_DEADLINE_H
