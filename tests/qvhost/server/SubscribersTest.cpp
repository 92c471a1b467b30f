// SPDX-License-Identifier: Apache-2.0

#include "server/Subscribers.h"

#include <gtest/gtest.h>

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <utility>

namespace qv::host {
namespace {

class Listener : public Subscriber {
  public:
    explicit Listener(
        Subscribers& subscribers, std::function<bool()> take = [] { return false; })
        : Subscriber(subscribers), take_(std::move(take)) {}

    int rounds() const { return rounds_; }

  private:
    bool takeEvents() noexcept override {
        ++rounds_;
        return take_();
    }

    std::function<bool()> take_;
    int rounds_ = 0;
};

class SubscribersTest : public testing::Test {
  protected:
    SubscribersTest() {
        setTimersAside(context, 1);
        context.run();
        context.restart();
    }

    Subscribers subscribers{pause};
    asio::io_context context;
    asio::steady_timer pause{context};
};

TEST_F(SubscribersTest, EachIsToldOnceHoweverOftenTheThreadIs) {
    const Listener one(subscribers);
    const Listener other(subscribers);
    EXPECT_EQ(subscribers.count(), 2U);
    for (int i = 0; i < 3; ++i) {
        subscribers.tell();
    }
    context.run();
    EXPECT_EQ(one.rounds(), 1);
    EXPECT_EQ(other.rounds(), 1);
}

TEST_F(SubscribersTest, EachTellingAfterARoundIsAnotherRound) {
    const Listener listener(subscribers);
    for (int round = 1; round <= 3; ++round) {
        subscribers.tell();
        context.restart();
        context.run();
        EXPECT_EQ(listener.rounds(), round);
    }
}

TEST_F(SubscribersTest, WithoutSubscribersThereIsNothingToDo) {
    { const Listener gone(subscribers); }
    EXPECT_EQ(subscribers.count(), 0U);
    subscribers.tell();
    EXPECT_EQ(context.poll(), 0U);
}

TEST_F(SubscribersTest, WhatIsToldDuringARoundIsAnotherRound) {
    bool isFirst = true;
    const Listener listener(subscribers, [&] {
        if (std::exchange(isFirst, false)) {
            subscribers.tell();
        }
        return false;
    });
    subscribers.tell();
    context.run();
    EXPECT_EQ(listener.rounds(), 2);
}

TEST_F(SubscribersTest, RoundsGoOnWhileEventsAreLeft) {
    int left = 3;
    const Listener listener(subscribers, [&left] { return left-- > 0; });
    const Listener other(subscribers);
    subscribers.tell();
    context.run();
    EXPECT_EQ(listener.rounds(), 4);
    EXPECT_EQ(other.rounds(), 4);
}

TEST_F(SubscribersTest, SubscriberMayLeaveDuringARound) {
    std::unique_ptr<Listener> one;
    std::unique_ptr<Listener> other;
    // Whichever comes first takes the other one with it.
    one = std::make_unique<Listener>(subscribers, [&] {
        other.reset();
        return false;
    });
    other = std::make_unique<Listener>(subscribers, [&] {
        one.reset();
        return false;
    });
    const Listener third(subscribers);
    subscribers.tell();
    context.run();
    EXPECT_NE(one == nullptr, other == nullptr);
    EXPECT_EQ((one != nullptr ? *one : *other).rounds(), 1);
    EXPECT_EQ(third.rounds(), 1);
    EXPECT_EQ(subscribers.count(), 2U);
}

}  // namespace
}  // namespace qv::host
