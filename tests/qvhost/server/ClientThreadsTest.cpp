// SPDX-License-Identifier: Apache-2.0

#include "server/ClientThreads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <asio/post.hpp>
#include <atomic>
#include <cstddef>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "qvhost/TestFiles.h"
#include "server/Recorder.h"

namespace qv::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Writes its number into a list when it is woken.
class NumberedSleeper : public Sleeper {
  public:
    NumberedSleeper(std::vector<int>& woken, int number) : woken_(woken), number_(number) {}

  private:
    void wokenUp() noexcept override { woken_.push_back(number_); }

    std::vector<int>& woken_;
    int number_;
};

TEST(ClientThread, SleepersAreCalledInTheOrderInWhichTheyAreWoken) {
    ClientThread thread;
    std::vector<int> woken;
    for (const int number : {1, 2, 3}) {
        thread.wake(std::make_shared<NumberedSleeper>(woken, number));
    }
    EXPECT_THAT(woken, IsEmpty());
    thread.context().poll();
    EXPECT_THAT(woken, ElementsAre(1, 2, 3));
}

TEST(ClientThread, ManySleepersCostOneWakeUp) {
    ClientThread thread;
    std::vector<int> woken;
    for (int number = 0; number < 100; ++number) {
        thread.wake(std::make_shared<NumberedSleeper>(woken, number));
    }
    EXPECT_EQ(thread.context().poll(), 1U);
    EXPECT_EQ(woken.size(), 100U);
}

TEST(ClientThread, SleeperIsKeptAliveUntilItIsCalled) {
    ClientThread thread;
    std::vector<int> woken;
    auto client = std::make_shared<NumberedSleeper>(woken, 1);
    const std::weak_ptr<NumberedSleeper> seen = client;
    thread.wake(std::move(client));
    EXPECT_FALSE(seen.expired());
    thread.context().poll();
    EXPECT_THAT(woken, ElementsAre(1));
    EXPECT_TRUE(seen.expired());
}

TEST(ClientThread, SleeperCanBeWokenAgain) {
    ClientThread thread;
    std::vector<int> woken;
    const auto client = std::make_shared<NumberedSleeper>(woken, 1);
    for (int round = 0; round < 3; ++round) {
        thread.wake(client);
        thread.context().poll();
    }
    EXPECT_THAT(woken, ElementsAre(1, 1, 1));
}

// Counts its calls, and wakes itself again.
class Restless : public Sleeper, public std::enable_shared_from_this<Restless> {
  public:
    Restless(ClientThread& thread, int times) : thread_(thread), left_(times) {}

    std::future<void> done() { return done_.get_future(); }

  private:
    void wokenUp() noexcept override {
        if (--left_ == 0) {
            done_.set_value();
        } else {
            thread_.wake(shared_from_this());
        }
    }

    ClientThread& thread_;
    int left_;
    std::promise<void> done_;
};

TEST(ClientThread, NoWakeUpIsLostBetweenThreads) {
    ClientThread thread;
    thread.start();
    constexpr int kTimes = 20'000;
    std::vector<std::future<void>> done;
    std::vector<std::thread> wakers;
    for (int i = 0; i < 3; ++i) {
        const auto client = std::make_shared<Restless>(thread, kTimes);
        done.push_back(client->done());
        wakers.emplace_back([&thread, client] { thread.wake(client); });
    }
    for (std::thread& waker : wakers) {
        waker.join();
    }
    for (std::future<void>& each : done) {
        each.wait();
    }
    thread.join();
}

TEST(ClientThread, SleepersThatAreWokenTooLateGoWithTheThread) {
    std::vector<int> woken;
    std::vector<std::weak_ptr<NumberedSleeper>> seen;
    {
        ClientThread thread;
        for (int number = 0; number < 100'000; ++number) {
            const auto client = std::make_shared<NumberedSleeper>(woken, number);
            seen.push_back(client);
            thread.wake(client);
        }
    }
    EXPECT_THAT(woken, IsEmpty());
    for (const std::weak_ptr<NumberedSleeper>& each : seen) {
        EXPECT_TRUE(each.expired());
    }
}

TEST(ClientThread, HasRunOnlyIfItHadATurn) {
    ClientThread thread;
    EXPECT_TRUE(thread.hasRun());
    EXPECT_FALSE(thread.hasRun());
    EXPECT_FALSE(thread.hasRun());
    thread.context().poll();
    EXPECT_TRUE(thread.hasRun());
    EXPECT_FALSE(thread.hasRun());
}

TEST(ClientThreads, AllMustHaveRun) {
    ClientThreads threads(2);
    ClientThread& first = threads.next();
    const ClientThread::Place place(first);
    ClientThread& second = threads.next();
    EXPECT_TRUE(threads.haveRun());
    first.context().poll();
    EXPECT_FALSE(threads.haveRun());
    second.context().poll();
    EXPECT_FALSE(threads.haveRun());
    first.context().poll();
    // The others are asked again even if one has not run.
    EXPECT_EQ(second.context().poll(), 1U);
    EXPECT_TRUE(threads.haveRun());
}

TEST(ClientThreads, ClientGetsTheThreadWithTheFewest) {
    ClientThreads threads(2);
    ClientThread& first = threads.next();
    std::optional<ClientThread::Place> place(first);
    ClientThread& second = threads.next();
    EXPECT_NE(&first, &second);
    const ClientThread::Place other(second);
    const ClientThread::Place another(second);
    EXPECT_EQ(&threads.next(), &first);
    place.reset();
    EXPECT_EQ(first.clients(), 0U);
    EXPECT_EQ(second.clients(), 2U);
}

TEST(ClientThreads, AbandonedThreadsDoNoMoreWork) {
    ClientThreads threads(2);
    std::atomic<int> rounds = 0;
    ClientThread& thread = threads.next();
    struct Endless {
        ClientThread& thread;
        std::atomic<int>& rounds;

        void operator()() const {
            ++rounds;
            asio::post(thread.context(), *this);
        }
    };
    asio::post(thread.context(), Endless{thread, rounds});
    threads.start();
    while (rounds == 0) {
        std::this_thread::yield();
    }
    threads.abandon();
    EXPECT_GT(rounds, 0);
}

TEST(ClientThread, IdleThreadHoldsNoSnapshot) {
    const TestFiles files;
    Recorder recorder(files.path("record"), [](const std::string& /*line*/) {});
    recorder.start();
    ClientThread thread;
    std::weak_ptr<const Snapshot> read;
    asio::post(thread.context(), [&] { read = thread.directory().newest(recorder).snapshot; });
    thread.start();
    thread.join();
    EXPECT_FALSE(read.expired());
    recorder.replace({{1, "/a"}});
    EXPECT_TRUE(read.expired());
}

}  // namespace
}  // namespace qv::host
