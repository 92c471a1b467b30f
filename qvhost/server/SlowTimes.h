// Tells whether requests are slow at present, as when changes are saved to a disk. A long request
// begins a slow time. Any number of threads may use an object.
#ifndef QVHOST_SERVER_SLOW_TIMES_H
#define QVHOST_SERVER_SLOW_TIMES_H

#include <atomic>
#include <chrono>

namespace qv::host {

class SlowTimes {
  public:
    using Clock = std::chrono::steady_clock;

    void executed(Clock::time_point begin, Clock::time_point end) {
        if (end - begin >= kLong) {
            const Clock::rep until = (end + kTimes * (end - begin)).time_since_epoch().count();
            Clock::rep earlier = until_;
            while (earlier < until && !until_.compare_exchange_weak(earlier, until)) {
            }
        }
    }

    bool include(Clock::time_point now) const { return now.time_since_epoch().count() < until_; }

  private:
    // This is many times the cost of handing a request over to another thread.
    static constexpr std::chrono::milliseconds kLong{1};

    // A slow time lasts this many times as long as the request that began it.
    static constexpr int kTimes = 10;

    std::atomic<Clock::rep> until_ = Clock::time_point::min().time_since_epoch().count();
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_SLOW_TIMES_H
