// SPDX-License-Identifier: Apache-2.0

// Lets handlers wait again while no memory is left.
#include "server/HandlerMemory.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <csignal>
#include <new>

#include "support/FailingCalls.h"

namespace qv::host {
namespace {

constexpr int kRounds = 3;

// Runs the context while every allocation fails.
void runWithoutMemory(asio::io_context& context) {
    tests::failEveryMallocAfter(0);
    context.run();
    EXPECT_FALSE(tests::mallocFailed());
}

class Timer {
  public:
    explicit Timer(asio::io_context& context) : timer_(context) {}

    void wait() {
        timer_.expires_after(std::chrono::milliseconds(1));
        timer_.async_wait(memory_.keep([this](const asio::error_code& error) {
            EXPECT_FALSE(error);
            if (++rounds < kRounds) {
                wait();
            }
        }));
    }

    int rounds = 0;

  private:
    asio::steady_timer timer_;
    HandlerMemory memory_;
};

TEST(HandlerMemory, TimerGoesOnWithoutMemory) {
    asio::io_context context{1};
    Timer timer(context);
    timer.wait();
    runWithoutMemory(context);
    EXPECT_EQ(timer.rounds, kRounds);
}

TEST(HandlerMemory, SeveralTimersBeginWithoutMemory) {
    asio::io_context context{1};
    setTimersAside(context, 3);
    context.run();
    context.restart();
    Timer first(context);
    Timer second(context);
    Timer third(context);
    tests::failEveryMallocAfter(0);
    for (Timer* const timer : {&first, &second, &third}) {
        timer->wait();
    }
    context.run();
    EXPECT_FALSE(tests::mallocFailed());
    EXPECT_EQ(first.rounds + second.rounds + third.rounds, 3 * kRounds);
}

class Signals {
  public:
    explicit Signals(asio::io_context& context) : signals_(context, SIGUSR1) {}

    void wait() {
        signals_.async_wait(memory_.keep([this](const asio::error_code& error, int signal) {
            EXPECT_FALSE(error);
            EXPECT_EQ(signal, SIGUSR1);
            if (++rounds < kRounds) {
                std::raise(SIGUSR1);
                wait();
            }
        }));
    }

    int rounds = 0;

  private:
    asio::signal_set signals_;
    HandlerMemory memory_;
};

TEST(HandlerMemory, SignalsGoOnWithoutMemory) {
    asio::io_context context{1};
    Signals signals(context);
    signals.wait();
    std::raise(SIGUSR1);
    runWithoutMemory(context);
    EXPECT_EQ(signals.rounds, kRounds);
}

TEST(HandlerMemory, HandlerIsPostedWithoutMemory) {
    asio::io_context context{1};
    HandlerMemory memory;
    int rounds = 0;
    tests::failEveryMallocAfter(0);
    for (int i = 0; i < kRounds; ++i) {
        asio::post(context, memory.keep([&] { ++rounds; }));
        context.run();
        context.restart();
    }
    EXPECT_FALSE(tests::mallocFailed());
    EXPECT_EQ(rounds, kRounds);
}

TEST(HandlerMemory, OnlyOneHandlerWaitsThere) {
    asio::io_context context{1};
    HandlerMemory memory;
    asio::post(context, memory.keep([] {}));
    EXPECT_THROW(asio::post(context, memory.keep([] {})), std::bad_alloc);
}

}  // namespace
}  // namespace qv::host
