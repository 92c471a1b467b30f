// SPDX-License-Identifier: Apache-2.0

// Tests what conversations do when the budget of all clients has no room.
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "qvhost/RawClient.h"
#include "qvhost/server/ServedDirectory.h"
#include "qvhost/server/Users.h"
#include "support/LoadedPlugin.h"

namespace qv::host {
namespace {

using tests::decode;
using tests::encode;
using tests::ServedDirectory;
using tests::Services;

constexpr std::size_t kShare = std::size_t{1024} * 1024;  // of one user

// Returns a registration of about so many bytes.
std::string longRegistration(uint32_t number, int32_t firstId, std::size_t bytes) {
    Services services;
    for (std::size_t sum = 0; sum < bytes; sum += 4000) {
        services.emplace_back(firstId++, std::string(4000, 'x'));
    }
    return frame(QV_COMMAND_REGISTER_SERVICES, number, encode(services));
}

void expectAnswer(const RawClient& client, uint32_t number, uint32_t code = QV_OK) {
    const std::optional<RawAnswer> answer = client.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->number, number);
    EXPECT_EQ(answer->code, code);
}

class ConversationBudgetTest : public testing::Test {
  protected:
    ConversationBudgetTest() {
        served.limits.maxMemory = 4 * kShare;
        served.limits.frameTimeout = std::chrono::hours(1);
        served.start();
    }

    // Waits until the thread has done everything that it can do.
    void settle() {
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(served.connect().works());
        }
    }

    // Makes the directory hold services whose listing has about so many bytes.
    void fill(std::size_t bytes) {
        const RawClient writer = served.connect();
        ASSERT_TRUE(writer.send(longRegistration(1, 1000, bytes)));
        expectAnswer(writer, 1);
        settle();
        EXPECT_EQ(served.budget().held(), 0U);
    }

    ServedDirectory served;
};

TEST_F(ConversationBudgetTest, LengthIsHeldFromTheHeaderToTheAnswer) {
    const RawClient client = served.connect(kOther);
    const std::string request = longRegistration(1, 1, 100'000);
    ASSERT_TRUE(client.send(request.substr(0, 12)));
    settle();
    // A change takes its length twice.
    EXPECT_EQ(served.budget().held(), 2 * request.size());
    ASSERT_TRUE(client.send(request.substr(12)));
    expectAnswer(client, 1);
    settle();
    EXPECT_EQ(served.budget().held(), 0U);
}

TEST_F(ConversationBudgetTest, OtherRequestTakesItsLengthOnce) {
    const RawClient client = served.connect(kOther);
    const std::string request = frame(QV_HOST_COMMAND_PING, 1, std::string(100'000, 'x'));
    ASSERT_TRUE(client.send(request.substr(0, 12)));
    settle();
    EXPECT_EQ(served.budget().held(), request.size());
    ASSERT_TRUE(client.send(request.substr(12)));
    expectAnswer(client, 1);
}

TEST_F(ConversationBudgetTest, ShortRequestsTakeNothing) {
    const RawClient client = served.connect(kOther);
    const std::string request = frame(QV_HOST_COMMAND_PING, 1, std::string(10'000, 'x'));
    ASSERT_TRUE(client.send(request.substr(0, 5000)));
    settle();
    EXPECT_EQ(served.budget().held(), 0U);
    ASSERT_TRUE(client.send(request.substr(5000)));
    expectAnswer(client, 1);
}

TEST_F(ConversationBudgetTest, RequestWithoutRoomWaitsAndItsTimeDoesNotCount) {
    const std::string request = longRegistration(1, 1, 300'000);
    const RawClient holder = served.connect(kOther);
    ASSERT_TRUE(holder.send(request.substr(0, 20)));
    settle();
    const RawClient waiting = served.connect(kOther);
    ASSERT_TRUE(waiting.send(request.substr(0, 20)));
    settle();
    EXPECT_EQ(served.budget().held(), 2 * request.size());
    // The host reads nothing more of the client that waits.
    std::size_t sent = 20;
    while (sent < request.size() && waiting.sendSome(request.substr(sent, 1000))) {
        sent += 1000;
    }
    EXPECT_LT(sent, request.size());
    const RawClient other = served.connect(kAnother);
    ASSERT_TRUE(other.send(request));
    expectAnswer(other, 1);
    served.passTime(std::chrono::hours(2));
    // The holder gives its room to the client that waits.
    expectAnswer(holder, 1, QV_HOST_ERROR_TIMEOUT);
    ASSERT_TRUE(waiting.send(request.substr(sent)));
    expectAnswer(waiting, 1);
}

TEST_F(ConversationBudgetTest, ShortRequestsOfAUserWithoutRoomAreAnswered) {
    const std::string request = longRegistration(1, 1, 300'000);
    const RawClient holder = served.connect(kOther);
    ASSERT_TRUE(holder.send(request.substr(0, 20)));
    const RawClient waiting = served.connect(kOther);
    ASSERT_TRUE(waiting.send(request.substr(0, 20)));
    settle();
    const RawClient client = served.connect(kOther);
    EXPECT_TRUE(client.works());
    ASSERT_TRUE(client.send(frame(QV_COMMAND_REGISTER_SERVICES, 2, encode({{5, "e"}})) +
                            frame(QV_COMMAND_GET_SERVICES, 3)));
    expectAnswer(client, 2);
    expectAnswer(client, 3);
}

TEST_F(ConversationBudgetTest, RequestThatCanNeverHaveRoomIsRefused) {
    const RawClient client = served.connect(kOther);
    // A change would take its length twice.
    ASSERT_TRUE(client.send(longRegistration(1, 1, 600'000).substr(0, 12)));
    expectAnswer(client, 1, QV_HOST_ERROR_LENGTH);
    EXPECT_FALSE(client.receive());
    const RawClient owner = served.connect();
    ASSERT_TRUE(owner.send(longRegistration(2, 1, 600'000)));
    expectAnswer(owner, 2);
}

TEST_F(ConversationBudgetTest, ClientThatLeavesGivesItsRoomBack) {
    const std::string request = longRegistration(1, 1, 300'000);
    std::optional<RawClient> holder(served.connect(kOther));
    ASSERT_TRUE(holder->send(request.substr(0, 20)));
    settle();
    const RawClient waiting = served.connect(kOther);
    ASSERT_TRUE(waiting.send(request.substr(0, 20)));
    settle();
    holder.reset();
    ASSERT_TRUE(waiting.send(request.substr(20)));
    expectAnswer(waiting, 1);
}

TEST_F(ConversationBudgetTest, LongListingWaitsForRoomAndIsThenTheNewestOne) {
    fill(700'000);
    const RawClient deaf = served.connect(kOther);
    ASSERT_TRUE(deaf.send(frame(QV_COMMAND_GET_SERVICES, 1)));
    settle();
    EXPECT_GT(served.budget().held(), 700'000U);
    const RawClient waiting = served.connect(kOther);
    ASSERT_TRUE(waiting.send(frame(QV_HOST_COMMAND_PING, 1) + frame(QV_COMMAND_GET_SERVICES, 2) +
                             frame(QV_HOST_COMMAND_PING, 3)));
    expectAnswer(waiting, 1);
    settle();
    const RawClient writer = served.connect();
    ASSERT_TRUE(writer.send(frame(QV_COMMAND_REGISTER_SERVICES, 1, encode({{5, "e"}}))));
    expectAnswer(writer, 1);
    expectAnswer(deaf, 1);
    const std::optional<RawAnswer> answer = waiting.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->number, 2U);
    EXPECT_EQ(decode(answer->bytes).front(), (tests::Service{5, "e"}));
    expectAnswer(waiting, 3);
    settle();
    EXPECT_EQ(served.budget().held(), 0U);
}

// Runs the thread's work here. That ends when the clients wait.
TEST(ConversationWithoutRoom, LongListingThatWaitsTakesNoTimeOfTheThread) {
    ServedDirectory served;
    served.limits.maxMemory = 4 * kShare;
    served.start(false);
    asio::io_context& context = served.thread().context();
    const RawClient writer = served.connect();
    Budget::Account holder(served.budget(), kOther);
    ASSERT_TRUE(holder.hold(kShare));
    ASSERT_TRUE(writer.send(longRegistration(1, 1, 100'000)));
    char byte = 0;
    // After the answer the recorder no longer wakes the thread.
    while (::recv(writer.descriptor(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) != 1) {
        context.poll();
    }
    expectAnswer(writer, 1);
    const RawClient waiting = served.connect(kOther);
    ASSERT_TRUE(waiting.send(frame(QV_COMMAND_GET_SERVICES, 2)));
    context.poll();
    EXPECT_EQ(::recv(waiting.descriptor(), &byte, 1, MSG_DONTWAIT), -1);
    ASSERT_TRUE(holder.hold(0));
    context.poll();
    expectAnswer(waiting, 2);
}

TEST_F(ConversationBudgetTest, ListingBeyondTheShareIsSentAlone) {
    fill(1'500'000);
    for (int round = 0; round < 2; ++round) {
        const RawClient client = served.connect(kOther);
        ASSERT_TRUE(
            client.send(frame(QV_COMMAND_GET_SERVICES, 1) + frame(QV_COMMAND_GET_SERVICES, 2)));
        expectAnswer(client, 1);
        expectAnswer(client, 2);
        EXPECT_TRUE(client.works());
    }
}

TEST_F(ConversationBudgetTest, ClientsThatAllWantMoreThanThereIsAreAllServed) {
    constexpr int kClients = 12;
    std::vector<std::thread> threads;
    threads.reserve(kClients);
    for (int i = 0; i < kClients; ++i) {
        threads.emplace_back([this, i] {
            const RawClient client = served.connect(i % 3 == 0 ? ::geteuid() : kOther + i % 3);
            for (uint32_t round = 1; round <= 5; ++round) {
                ASSERT_TRUE(client.send(longRegistration(round, i * 1000, 400'000)));
                expectAnswer(client, round);
                ASSERT_TRUE(client.send(frame(QV_COMMAND_GET_SERVICES, round)));
                expectAnswer(client, round);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    settle();
    EXPECT_EQ(served.budget().held(), 0U);
}

}  // namespace
}  // namespace qv::host
