#include "server/ReloadGate.h"

#include <utility>

namespace qv::host {

void ReloadGate::enter() {
    std::unique_lock<std::mutex> lock(mutex_);
    opened_.wait(lock, [this] { return !closed_; });
    ++inside_;
}

void ReloadGate::leave() {
    std::function<void()> emptied;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (--inside_ == 0) {
            emptied = std::exchange(emptied_, nullptr);
        }
    }
    if (emptied) {
        emptied();
    }
}

void ReloadGate::close(std::function<void()> emptied) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
        if (inside_ != 0) {
            emptied_ = std::move(emptied);
            return;
        }
    }
    emptied();
}

void ReloadGate::open() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        closed_ = false;
    }
    opened_.notify_all();
}

}  // namespace qv::host
