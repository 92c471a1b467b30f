// SPDX-License-Identifier: Apache-2.0

#include "server/Budget.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qvhost/server/Users.h"

namespace qv::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kBytes = 1600;

// A client that writes its name into a list when it gets room.
class Client : public Budget::Waiter {
  public:
    Client(Budget& budget, uid_t user, std::string name, std::vector<std::string>& granted)
        : account_(budget, user), name_(std::move(name)), granted_(granted) {}

    void granted(std::shared_ptr<Waiter> /*self*/) noexcept override { granted_.push_back(name_); }

    Budget::Account& account() { return account_; }

  private:
    Budget::Account account_;
    std::string name_;
    std::vector<std::string>& granted_;
};

class BudgetTest : public testing::Test {
  protected:
    // Makes a client that holds so much, or waits for it.
    std::shared_ptr<Client> client(uid_t user, std::size_t bytes, const std::string& name = "") {
        auto made = std::make_shared<Client>(budget, user, name, granted);
        made->account().hold(bytes, made);
        return made;
    }

    Budget budget{kBytes, kOwner};
    std::vector<std::string> granted;
};

TEST_F(BudgetTest, AccountHoldsWhatItLastAskedFor) {
    Budget::Account account(budget, kOwner);
    EXPECT_EQ(account.held(), 0U);
    EXPECT_TRUE(account.hold(100));
    EXPECT_TRUE(account.hold(700));
    EXPECT_EQ(account.held(), 700U);
    EXPECT_EQ(budget.held(), 700U);
    EXPECT_TRUE(account.hold(200));
    EXPECT_TRUE(account.hold(200));
    EXPECT_EQ(budget.held(), 200U);
    EXPECT_TRUE(account.hold(0));
    EXPECT_EQ(budget.held(), 0U);
}

TEST_F(BudgetTest, AccountGivesBackWhatItHoldsAtItsEnd) {
    {
        Budget::Account account(budget, kOther);
        EXPECT_TRUE(account.hold(400));
    }
    EXPECT_EQ(budget.held(), 0U);
    Budget::Account next(budget, kOther);
    EXPECT_TRUE(next.hold(400));
}

TEST_F(BudgetTest, WithoutRoomAndWaiterAnAccountHoldsNothing) {
    Budget::Account first(budget, kOther);
    Budget::Account second(budget, kOther);
    EXPECT_TRUE(first.hold(300));
    EXPECT_TRUE(second.hold(100));
    EXPECT_FALSE(second.hold(101));
    EXPECT_EQ(second.held(), 0U);
    EXPECT_EQ(budget.held(), 300U);
    EXPECT_TRUE(second.hold(100));
}

TEST_F(BudgetTest, UserWhoCanNeverHaveSoMuchGetsAllHeCan) {
    Budget::Account account(budget, kOther);
    EXPECT_TRUE(account.hold(10 * kBytes));
    EXPECT_EQ(account.held(), budget.mostOf(kOther));
    EXPECT_TRUE(account.hold(0));
    EXPECT_EQ(budget.held(), 0U);
}

TEST_F(BudgetTest, WaiterIsToldWhenItHoldsWhatItWantedToHave) {
    const std::shared_ptr<Client> first = client(kOther, 300);
    const std::shared_ptr<Client> second = client(kOther, 200, "second");
    EXPECT_EQ(second->account().held(), 0U);
    first->account().hold(250);
    EXPECT_THAT(granted, IsEmpty());
    first->account().hold(200);
    EXPECT_THAT(granted, ElementsAre("second"));
    EXPECT_EQ(second->account().held(), 200U);
    EXPECT_EQ(budget.held(), 400U);
}

TEST_F(BudgetTest, WaitersGetRoomInTheirOrder) {
    std::shared_ptr<Client> first = client(kRoot, kBytes);
    const auto a = client(kRoot, 1000, "a");
    const auto b = client(kRoot, 500, "b");
    const auto c = client(kRoot, 500, "c");
    const auto d = client(kRoot, 100, "d");
    first->account().hold(1);
    EXPECT_THAT(granted, ElementsAre("a", "b"));
    a->account().hold(0);
    EXPECT_THAT(granted, ElementsAre("a", "b", "c", "d"));
}

TEST_F(BudgetTest, SmallWishDoesNotOvertakeALargeOne) {
    const auto holder = client(kRoot, 1000);
    const auto large = client(kRoot, 1000, "large");
    const auto small = client(kRoot, 1, "small");
    EXPECT_EQ(small->account().held(), 0U);
    Budget::Account withoutWaiter(budget, kRoot);
    EXPECT_FALSE(withoutWaiter.hold(1));
    holder->account().hold(0);
    EXPECT_THAT(granted, ElementsAre("large", "small"));
}

TEST_F(BudgetTest, UserWithAFullShareLetsOthersPass) {
    const auto holder = client(kOther, 300);
    const auto waiting = client(kOther, 200, "waiting");
    const auto behind = client(kOther, 10, "behind");
    const auto another = client(kAnother, 400, "another");
    EXPECT_EQ(another->account().held(), 400U);
    EXPECT_EQ(behind->account().held(), 0U);
    holder->account().hold(0);
    EXPECT_THAT(granted, ElementsAre("waiting", "behind"));
}

TEST_F(BudgetTest, OthersWhoWaitLetOwnerAndRootPass) {
    std::vector<std::shared_ptr<Client>> holders;
    for (uid_t user = kOther; user < kOther + 3; ++user) {
        holders.push_back(client(user, 400));
    }
    const auto waiting = client(kOther + 3, 400, "waiting");
    const auto owner = client(kOwner, 300);
    EXPECT_EQ(owner->account().held(), 300U);
    const auto ownerAgain = client(kOwner, 100, "owner again");
    EXPECT_EQ(ownerAgain->account().held(), 0U);
    const auto root = client(kRoot, 100);
    EXPECT_EQ(root->account().held(), 100U);
    EXPECT_THAT(granted, IsEmpty());
    holders.front()->account().hold(0);
    // The first in the queue gets what is free, and the owner goes on waiting.
    EXPECT_THAT(granted, ElementsAre("waiting"));
    holders.back()->account().hold(0);
    EXPECT_THAT(granted, ElementsAre("waiting", "owner again"));
}

TEST_F(BudgetTest, WaiterIsKeptAliveUntilItIsTold) {
    const auto holder = client(kOther, 400);
    std::weak_ptr<Client> waiting = client(kOther, 400, "waiting");
    EXPECT_FALSE(waiting.expired());
    holder->account().hold(0);
    EXPECT_THAT(granted, ElementsAre("waiting"));
    EXPECT_TRUE(waiting.expired());
    EXPECT_EQ(budget.held(), 0U);
}

TEST_F(BudgetTest, AbandonedWaitersGoWithoutAWord) {
    const auto holder = client(kOther, 400);
    const std::weak_ptr<Client> first = client(kOther, 400, "first");
    const auto second = client(kOther, 400, "second");
    budget.abandon();
    EXPECT_TRUE(first.expired());
    holder->account().hold(0);
    EXPECT_THAT(granted, IsEmpty());
    EXPECT_EQ(budget.held(), 0U);
}

TEST_F(BudgetTest, ReturnedBytesAreCounted) {
    Budget::Account account(budget, kOwner);
    account.hold(100);
    EXPECT_EQ(budget.takeReturned(), 0U);
    account.hold(40);
    account.hold(0);
    EXPECT_EQ(budget.takeReturned(), 100U);
    EXPECT_EQ(budget.takeReturned(), 0U);
}

// Holds different amounts again and again, and waits where there is no room.
class BusyClient : public Budget::Waiter {
  public:
    BusyClient(Budget& budget, uid_t user) : account_(budget, user) {}

    void granted(std::shared_ptr<Waiter> /*self*/) noexcept override {
        isGranted_.store(true, std::memory_order_release);
    }

    static void work(const std::shared_ptr<BusyClient>& self, const Budget& budget) {
        for (std::size_t round = 1; round <= 2000; ++round) {
            const std::size_t bytes = round * 37 % 400 + 1;
            if (!self->account_.hold(bytes, self)) {
                while (!self->isGranted_.exchange(false, std::memory_order_acquire)) {
                    std::this_thread::yield();
                }
            }
            EXPECT_EQ(self->account_.held(), bytes);
            EXPECT_LE(budget.held(), kBytes);
        }
        self->account_.hold(0);
    }

  private:
    Budget::Account account_;
    std::atomic<bool> isGranted_ = false;
};

TEST_F(BudgetTest, ManyThreadsAllGetTheirTurn) {
    std::vector<std::thread> threads;
    for (const uid_t user : {kRoot, kOwner, kOther, kOther, kAnother, kAnother}) {
        threads.emplace_back(
            [this, user] { BusyClient::work(std::make_shared<BusyClient>(budget, user), budget); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(budget.held(), 0U);
}

}  // namespace
}  // namespace qv::host
