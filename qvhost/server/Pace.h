// SPDX-License-Identifier: Apache-2.0

// Decides when the follower's next turn may begin. A turn is followed by a pause, a failed one by a
// delay that grows with each further failure.
#ifndef QVHOST_SERVER_PACE_H
#define QVHOST_SERVER_PACE_H

#include <algorithm>
#include <chrono>

namespace qv::host {

class Pace {
  public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::chrono::milliseconds pause{1000};       // at least, after a turn
        int factor = 3;                              // the pause is so often as long as the turn
        std::chrono::milliseconds firstRetry{1000};  // after a turn that failed
        std::chrono::milliseconds longestRetry{60'000};
    };

    explicit Pace(const Settings& settings)
        : settings_(settings), retryDelay_(settings.firstRetry) {}

    // Tells that a turn ended.
    void ended(Clock::time_point now, Clock::duration length, bool hasWorked) {
        pausedUntil_ = now + std::max<Clock::duration>(settings_.pause, settings_.factor * length);
        retryAt_ = now;
        if (hasWorked) {
            retryDelay_ = settings_.firstRetry;
        } else {
            retryAt_ += retryDelay_;
            retryDelay_ = std::min(2 * retryDelay_, settings_.longestRetry);
        }
    }

    // Returns when the next turn may begin. One that somebody waits for need not wait for the delay
    // after a failure.
    Clock::time_point next(bool isAwaited) const {
        return isAwaited ? pausedUntil_ : std::max(pausedUntil_, retryAt_);
    }

  private:
    Settings settings_;
    std::chrono::milliseconds retryDelay_;
    Clock::time_point pausedUntil_;
    Clock::time_point retryAt_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_PACE_H
