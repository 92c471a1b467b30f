// SPDX-License-Identifier: Apache-2.0

#include "server/CommitQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace qv::host {
namespace {

using std::chrono::hours;
using Clock = CommitQueue::Clock;

constexpr Clock::duration kNoTime{0};

class EmptyBatch : public ChangeBatch {
  public:
    void answered(AnsweredClients& /*clients*/) noexcept override {}
};

class CommitQueueTest : public testing::Test {
  protected:
    void submit(int count) {
        for (int i = 0; i < count; ++i) {
            queue.submit(std::make_shared<EmptyBatch>());
        }
    }

    // Commits what waits, and returns how much that is.
    std::size_t commit(Clock::duration length) {
        CommitQueue::Job job;
        EXPECT_TRUE(queue.take(job, std::nullopt));
        queue.committed(job, length);
        return job.batches.size();
    }

    // Begins a commit on another thread.
    std::future<std::size_t> commitMeanwhile() {
        std::future<std::size_t> size = std::async(std::launch::async, [this] {
            hasBegun_ = true;
            return commit(kNoTime);
        });
        // A commit that does not wait has the time to take what is there.
        for (int i = 0; i < 1000 || !hasBegun_; ++i) {
            std::this_thread::yield();
        }
        return size;
    }

    CommitQueue queue{hours(1)};

  private:
    std::atomic<bool> hasBegun_ = false;
};

TEST_F(CommitQueueTest, FirstCommitWaitsForNobodyElse) {
    submit(1);
    EXPECT_EQ(commit(kNoTime), 1U);
}

TEST_F(CommitQueueTest, CommitTakesEverythingThatWaits) {
    submit(3);
    EXPECT_EQ(commit(kNoTime), 3U);
}

TEST_F(CommitQueueTest, CommitWaitsForTheClientsOfTheLastOne) {
    submit(2);
    commit(hours(1));
    submit(1);
    std::future<std::size_t> next = commitMeanwhile();
    submit(1);
    EXPECT_EQ(next.get(), 2U);
}

TEST_F(CommitQueueTest, CommitWaitsForTheClientsOfTheLastOneWhenAnotherHasSentAChangeMeanwhile) {
    submit(1);
    CommitQueue::Job job;
    ASSERT_TRUE(queue.take(job, std::nullopt));
    submit(1);
    queue.committed(job, hours(1));
    std::future<std::size_t> next = commitMeanwhile();
    submit(1);
    EXPECT_EQ(next.get(), 2U);
}

TEST_F(CommitQueueTest, CommitWaitsForNoLongerThanTheLastOneTook) {
    submit(2);
    commit(kNoTime);
    submit(1);
    EXPECT_EQ(commit(kNoTime), 1U);
}

TEST_F(CommitQueueTest, PatienceIsBounded) {
    CommitQueue impatient{kNoTime};
    for (int i = 0; i < 2; ++i) {
        impatient.submit(std::make_shared<EmptyBatch>());
    }
    CommitQueue::Job job;
    ASSERT_TRUE(impatient.take(job, std::nullopt));
    impatient.committed(job, hours(1));
    job = {};
    impatient.submit(std::make_shared<EmptyBatch>());
    ASSERT_TRUE(impatient.take(job, std::nullopt));
    EXPECT_EQ(job.batches.size(), 1U);
}

TEST_F(CommitQueueTest, LoneClientDoesNotWait) {
    for (int i = 0; i < 3; ++i) {
        submit(1);
        EXPECT_EQ(commit(hours(1)), 1U);
    }
}

TEST_F(CommitQueueTest, WishEndsTheWait) {
    submit(2);
    commit(hours(1));
    submit(1);
    CommitQueue::Wish wish;
    std::thread wishing([&] { queue.fulfil(wish); });
    CommitQueue::Job job;
    while (job.wishes.empty()) {
        ASSERT_TRUE(queue.take(job, std::nullopt));
    }
    queue.fulfilled(job, true, false);
    wishing.join();
    EXPECT_TRUE(wish.isKept);
    EXPECT_FALSE(wish.isOutOfMemory);
}

TEST_F(CommitQueueTest, EndOfTheHostEndsTheWait) {
    submit(2);
    commit(hours(1));
    submit(1);
    queue.stop();
    EXPECT_EQ(commit(kNoTime), 1U);
    CommitQueue::Job job;
    EXPECT_FALSE(queue.take(job, std::nullopt));
}

TEST_F(CommitQueueTest, JobIsEmptyWhenItIsTimeToTryAgain) {
    submit(2);
    commit(hours(1));
    CommitQueue::Job job;
    EXPECT_TRUE(queue.take(job, Clock::now()));
    EXPECT_TRUE(job.batches.empty());
    EXPECT_TRUE(job.wishes.empty());
}

}  // namespace
}  // namespace qv::host
