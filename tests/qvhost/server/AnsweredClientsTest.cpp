// SPDX-License-Identifier: Apache-2.0

#include "server/AnsweredClients.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qv::host {
namespace {

using std::chrono::hours;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr AnsweredClients::Clock::duration kNoWait{0};

// Tells what happens to the clients.
using Events = std::vector<std::string>;

class FakeClient : public AnsweredClients::Client {
  public:
    // The next change arrives after so many looks.
    FakeClient(Events& events, std::string name, int looks)
        : events_(events), name_(std::move(name)), looks_(looks) {}

  private:
    bool takeNextChange() noexcept override {
        if (looks_-- > 0) {
            return false;
        }
        events_.push_back("took " + name_);
        return true;
    }
    void giveBack() noexcept override { events_.push_back("gave back " + name_); }

    Events& events_;
    const std::string name_;
    int looks_;
};

class AnsweredClientsTest : public testing::Test {
  protected:
    std::shared_ptr<FakeClient> add(const std::string& name, int looks) {
        auto client = std::make_shared<FakeClient>(events, name, looks);
        clients.add(client);
        return client;
    }

    static constexpr int kNever = 1'000'000'000;

    Events events;
    AnsweredClients clients{hours(1)};
};

TEST_F(AnsweredClientsTest, NobodyIsWaitedForAfterACommitWithoutClients) {
    clients.takeNextChanges(hours(1));
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(AnsweredClientsTest, ChangesThatHaveArrivedAreTakenInTheOrderOfTheAnswers) {
    add("a", 0);
    add("b", 0);
    add("c", 0);
    clients.takeNextChanges(hours(1));
    EXPECT_THAT(events, ElementsAre("took a", "took b", "took c"));
}

TEST_F(AnsweredClientsTest, ChangesThatArriveLaterAreTaken) {
    add("a", 2);
    add("b", 0);
    add("c", 1);
    clients.takeNextChanges(hours(1));
    EXPECT_THAT(events, ElementsAre("took b", "took c", "took a"));
}

TEST_F(AnsweredClientsTest, ClientsThatSendNothingForALongTimeAreGivenBackInTheirOrder) {
    AnsweredClients impatient(kNoWait);
    impatient.add(std::make_shared<FakeClient>(events, "a", kNever));
    impatient.add(std::make_shared<FakeClient>(events, "b", 0));
    impatient.add(std::make_shared<FakeClient>(events, "c", kNever));
    impatient.takeNextChanges(hours(1));
    EXPECT_THAT(events, ElementsAre("took b", "gave back a", "gave back c"));
}

TEST_F(AnsweredClientsTest, WaitIsBounded) {
    add("a", kNever);
    clients.takeNextChanges(kNoWait);
    EXPECT_THAT(events, ElementsAre("gave back a"));
}

TEST_F(AnsweredClientsTest, WaitIsBoundedWhenChangesArrive) {
    add("a", kNever);
    add("b", 0);
    clients.takeNextChanges(kNoWait);
    EXPECT_THAT(events, ElementsAre("took b", "gave back a"));
}

TEST_F(AnsweredClientsTest, NobodyIsWaitedForLongByDefault) {
    AnsweredClients usual;
    usual.add(std::make_shared<FakeClient>(events, "a", kNever));
    usual.takeNextChanges(hours(1));
    EXPECT_THAT(events, ElementsAre("gave back a"));
}

TEST_F(AnsweredClientsTest, NoClientIsHeldAfterwards) {
    const std::shared_ptr<FakeClient> takenClient = add("a", 0);
    const std::weak_ptr<FakeClient> behindTaken = add("b", kNever);
    const std::shared_ptr<FakeClient> givenBack = add("c", kNever);
    const std::weak_ptr<FakeClient> last = add("d", kNever);
    clients.takeNextChanges(kNoWait);
    EXPECT_TRUE(behindTaken.expired());
    EXPECT_TRUE(last.expired());
}

TEST_F(AnsweredClientsTest, ClientMayBeAnsweredAgain) {
    const auto client = std::make_shared<FakeClient>(events, "a", 1);
    const auto other = std::make_shared<FakeClient>(events, "b", 0);
    for (int commit = 0; commit < 2; ++commit) {
        clients.add(other);
        clients.add(client);
        clients.takeNextChanges(hours(1));
    }
    EXPECT_THAT(events, ElementsAre("took b", "took a", "took b", "took a"));
}

}  // namespace
}  // namespace qv::host
