// SPDX-License-Identifier: Apache-2.0

// What waits for the recorder's next commit: the changes of clients, and the wishes of other
// threads.
//
//     queue.submit(batch);               // any thread
//
//     CommitQueue::Job job;              // the recorder's thread
//     while (queue.take(job, retryAt)) {
//         ...                            // commits the job
//         queue.committed(job, length);
//         ...                            // answers the job
//     }
//
// A flush takes as long for many changes as for one, so a commit should have the changes of all
// clients that change the directory. Without further care, the clients form two groups: the changes
// of one group arrive while those of the other are flushed, and each flush serves one group only.
// Therefore a commit waits for the clients that took part in the last one, and for those whose
// changes arrived meanwhile. It waits for no longer than the last commit took. A client that is
// alone never waits for another one. Most of the next changes are taken by AnsweredClients before
// the queue waits.
#ifndef QVHOST_SERVER_COMMIT_QUEUE_H
#define QVHOST_SERVER_COMMIT_QUEUE_H

#include <QvSystem/ThreadSafety.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "server/ChangeBatch.h"
#include "server/Snapshot.h"

namespace qv::host {

class CommitQueue {
  public:
    using Clock = std::chrono::steady_clock;

    // What a thread wants that waits for the next commit. The thread owns the object.
    struct Wish {
        const Snapshot* replacement = nullptr;  // null if only the note is to be kept
        bool isDone = false;
        bool isKept = false;
        bool isOutOfMemory = false;
    };

    // What one commit carries out.
    struct Job {
        std::vector<std::shared_ptr<ChangeBatch>> batches;
        std::vector<Wish*> wishes;
    };

    // A commit waits for other changes for `patience` at most.
    explicit CommitQueue(Clock::duration patience = std::chrono::milliseconds(1))
        : patience_(patience) {}

    // Adds changes. Any thread may call this. Throws std::bad_alloc.
    void submit(std::shared_ptr<ChangeBatch> batch);

    // Adds the wish, and waits until it is done. Any thread other than the recorder's may call
    // this. Throws std::bad_alloc.
    void fulfil(Wish& wish);

    // Has take() return false when nothing waits. Any thread may call this.
    void stop();

    // The recorder's thread calls the functions below.

    // Waits for something to do, and exchanges the job, which is empty, for what waits. The job
    // stays empty if `retryAt` has come. Returns false if nothing waits and the thread is to end.
    bool take(Job& job, std::optional<Clock::time_point> retryAt);

    // Tells how long the commit of the job took, and returns how long the next commit may wait for
    // changes. Call it before the clients get their answers, because a client may send its next
    // change at once.
    Clock::duration committed(const Job& job, Clock::duration length);

    // Tells the threads whose wishes the job has that they are done.
    void fulfilled(const Job& job, bool isKept, bool isOutOfMemory) noexcept;

  private:
    bool awaitWork(std::optional<Clock::time_point> retryAt) QV_REQUIRES(mutex_);
    void gather() QV_REQUIRES(mutex_);

    const Clock::duration patience_;
    system::Mutex mutex_;
    system::Condition wake_;  // the recorder's thread
    system::Condition done_;  // threads that wait for a wish
    Job waiting_ QV_GUARDED_BY(mutex_);
    bool isStopping_ QV_GUARDED_BY(mutex_) = false;
    // How many batches have to wait for the recorder's thread to be woken.
    std::size_t wakeAt_ QV_GUARDED_BY(mutex_) = 1;
    // The next commit begins when so many batches wait, or at the time.
    std::size_t expected_ QV_GUARDED_BY(mutex_) = 0;
    Clock::time_point latest_ QV_GUARDED_BY(mutex_);
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_COMMIT_QUEUE_H
