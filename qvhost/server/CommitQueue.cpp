// SPDX-License-Identifier: Apache-2.0

#include "server/CommitQueue.h"

#include <algorithm>
#include <utility>

namespace qv::host {

void CommitQueue::submit(std::shared_ptr<ChangeBatch> batch) {
    bool isAwaited = false;
    {
        const system::MutexLock lock(mutex_);
        waiting_.batches.push_back(std::move(batch));
        isAwaited = waiting_.batches.size() == wakeAt_;
    }
    // The thread takes everything that waits, so one call wakes it for all.
    if (isAwaited) {
        wake_.notifyOne();
    }
}

void CommitQueue::fulfil(Wish& wish) {
    const system::MutexLock lock(mutex_);
    waiting_.wishes.push_back(&wish);
    wake_.notifyOne();
    while (!wish.isDone) {
        done_.wait(mutex_);
    }
}

void CommitQueue::stop() {
    const system::MutexLock lock(mutex_);
    isStopping_ = true;
    wake_.notifyOne();
}

bool CommitQueue::take(Job& job, std::optional<Clock::time_point> retryAt) {
    const system::MutexLock lock(mutex_);
    if (!awaitWork(retryAt)) {
        return false;
    }
    if (!waiting_.batches.empty()) {
        gather();
    }
    // The vectors change places, so that their memory is used again.
    std::swap(waiting_, job);
    return true;
}

// Waits until something waits or it is time. Returns false if the thread is to end.
bool CommitQueue::awaitWork(std::optional<Clock::time_point> retryAt) {
    while (waiting_.batches.empty() && waiting_.wishes.empty()) {
        if (isStopping_) {
            return false;
        }
        if (!retryAt) {
            wake_.wait(mutex_);
        } else if (!wake_.waitUntil(mutex_, *retryAt)) {
            break;
        }
    }
    return true;
}

// Waits for the changes of the clients that are expected to send one.
void CommitQueue::gather() {
    wakeAt_ = expected_;
    while (waiting_.batches.size() < expected_ && waiting_.wishes.empty() && !isStopping_ &&
           wake_.waitUntil(mutex_, latest_)) {
    }
    wakeAt_ = 1;
}

CommitQueue::Clock::duration CommitQueue::committed(const Job& job, Clock::duration length) {
    const Clock::duration wait = std::min(length, patience_);
    const system::MutexLock lock(mutex_);
    expected_ = job.batches.size() + waiting_.batches.size();
    latest_ = Clock::now() + wait;
    return wait;
}

void CommitQueue::fulfilled(const Job& job, bool isKept, bool isOutOfMemory) noexcept {
    if (job.wishes.empty()) {
        return;
    }
    const system::MutexLock lock(mutex_);
    for (Wish* const wish : job.wishes) {
        wish->isDone = true;
        wish->isKept = isKept;
        wish->isOutOfMemory = isOutOfMemory;
    }
    done_.notifyAll();
}

}  // namespace qv::host
