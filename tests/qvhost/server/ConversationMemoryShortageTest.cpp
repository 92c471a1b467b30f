// SPDX-License-Identifier: Apache-2.0

// Makes each allocation for a client fail in turn. Only this client is lost.
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "qvhost/RawClient.h"
#include "qvhost/server/NumberedRequests.h"
#include "qvhost/server/ServedDirectory.h"
#include "qvhost/server/Subscribed.h"
#include "support/FailingCalls.h"
#include "support/LoadedPlugin.h"

namespace qv::host {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using tests::encode;
using Order = void (*)(int count);

class ConversationShortageTest : public testing::Test {
  protected:
    ConversationShortageTest() { served.start(false); }

    // Runs the client's conversation until it ends. Appends what the client receives to `all`.
    void receive(const RawClient& client, std::string& all) {
        for (;;) {
            served.thread().context().poll();
            char bytes[4096];
            const ssize_t count = ::recv(client.descriptor(), bytes, sizeof bytes, MSG_DONTWAIT);
            if (count == 0) {
                return;
            }
            if (count > 0) {
                all.append(bytes, static_cast<std::size_t>(count));
            }
        }
    }

    std::string answersTo(const std::string& requests) {
        const RawClient client = served.connect();
        EXPECT_TRUE(client.send(requests));
        client.endSending();
        std::string answers;
        receive(client, answers);
        return answers;
    }

    // Fails the allocations of the thread while a client is served. Returns how many there are.
    int failEach(Order order, const std::string& requests) {
        const std::string answers = answersTo(requests);
        for (int count = 0;; ++count) {
            const RawClient client = served.connect();
            EXPECT_TRUE(client.send(requests));
            client.endSending();
            std::string some;
            some.reserve(answers.size());
            order(count);
            receive(client, some);
            if (!tests::mallocFailed()) {
                EXPECT_EQ(some, answers);
                return count;
            }
            if (some == refusal) {
                isRefused = true;
            } else {
                EXPECT_EQ(some, answers.substr(0, some.size()));
            }
            EXPECT_EQ(answersTo(frame(QV_HOST_COMMAND_PING, 7)), frame(QV_OK, 7));
            while (served.clients().count() != 0) {
                served.thread().context().poll();
            }
            EXPECT_EQ(served.budget().held(), 0U);
        }
    }

    tests::ServedDirectory served;
    // What a client may also be told before it is lost, and whether one was.
    std::string refusal;
    bool isRefused = false;
};

TEST_F(ConversationShortageTest, ShortageEndsOneClient) {
    const std::string requests =
        frame(QV_HOST_COMMAND_PING, 1) +
        frame(QV_COMMAND_REGISTER_SERVICES, 2, encode({{5, std::string(100, 'e')}})) +
        frame(QV_COMMAND_GET_SERVICES, 3) +
        frame(QV_COMMAND_UNREGISTER_SERVICES, 4, encode({{5, ""}})) +
        frame(QV_HOST_COMMAND_SYNC, 5);
    for (const Order order : {tests::failMallocAfter, tests::failEveryMallocAfter}) {
        EXPECT_GE(failEach(order, requests), 5);
    }
}

TEST_F(ConversationShortageTest, ShortageEndsOneSubscriber) {
    for (const std::vector<int32_t>& ids : {std::vector<int32_t>{}, std::vector<int32_t>{5, 6}}) {
        const std::string requests =
            frame(QV_HOST_COMMAND_HELLO, 1) +
            frame(QV_COMMAND_REGISTER_SERVICES, 2, encode({{5, std::string(100, 'e')}})) +
            frame(QV_HOST_COMMAND_FIND, 3, tests::subscription({5})) +
            frame(QV_HOST_COMMAND_SUBSCRIBE, 4, tests::subscription(ids));
        for (const Order order : {tests::failMallocAfter, tests::failEveryMallocAfter}) {
            EXPECT_GE(failEach(order, requests), 10);
        }
    }
}

TEST_F(ConversationShortageTest, ShortageForALongRequestEndsOneClient) {
    const std::string requests =
        frame(QV_HOST_COMMAND_PING, 1, std::string(50'000, 'x')) + frame(QV_HOST_COMMAND_PING, 2);
    refusal = frame(QV_HOST_ERROR_LENGTH, 1, "the host has no memory for a request of this length");
    for (const Order order : {tests::failMallocAfter, tests::failEveryMallocAfter}) {
        EXPECT_GE(failEach(order, requests), 2);
    }
    EXPECT_TRUE(isRefused);
}

// The bytes of the second request are a request themselves, if its header is forgotten.
TEST_F(ConversationShortageTest, RequestWhoseBeginIsLostIsNotContinued) {
    const std::string second = frame(QV_HOST_COMMAND_PING, 2, frame(QV_HOST_COMMAND_PING, 99));
    const std::string begin = frame(QV_COMMAND_REGISTER_SERVICES, 1, encode({{5, "e"}})) +
                              second.substr(0, QV_FRAME_HEADER_SIZE);
    const std::string answers = frame(QV_OK, 1) + frame(QV_OK, 2);
    for (const Order order : {tests::failMallocAfter, tests::failEveryMallocAfter}) {
        bool hasFailed = true;
        for (int count = 0; hasFailed; ++count) {
            const RawClient client = served.connect();
            EXPECT_TRUE(client.send(begin));
            order(count);
            served.thread().context().poll();
            hasFailed = tests::mallocFailed();
            static_cast<void>(client.sendSome(second.substr(QV_FRAME_HEADER_SIZE)));
            client.endSending();
            std::string some;
            receive(client, some);
            EXPECT_EQ(some, answers.substr(0, some.size())) << count;
            EXPECT_TRUE(hasFailed || some == answers);
        }
    }
}

TEST_F(ConversationShortageTest, ClientWhoseBytesAreLostIsDisconnectedAtOnce) {
    int failures = 0;
    for (;; ++failures) {
        const RawClient client = served.connect();
        EXPECT_TRUE(client.send("part"));
        tests::failMallocAfter(failures);
        served.thread().context().poll();
        if (!tests::mallocFailed()) {
            break;
        }
        std::string none;
        receive(client, none);
        EXPECT_EQ(none, "");
    }
    EXPECT_GE(failures, 1);
}

// The recorder's thread answers the first change. It runs out of memory then, or while it takes or
// makes the second one, which has arrived.
TEST(ConversationShortage, ShortageOnTheRecordersThreadEndsOneClient) {
    constexpr int32_t kId = 5;
    std::atomic<bool> hasFailed = true;
    int count = 0;
    for (; hasFailed; ++count) {
        std::optional<RawClient> client;
        std::atomic<int64_t> ordered = 0;  // the revision after which memory ran out
        tests::ServedDirectory served;
        served.published = [&](int64_t revision) {
            if (revision == 1 && ordered == 0) {
                EXPECT_TRUE(client->send(registration(2, {{kId, "b"}})));
                client->endSending();
                ordered = revision;
                tests::failMallocAfter(count);
            } else if (revision > 1 && ordered == 1) {
                ordered = revision;
                hasFailed = tests::mallocFailed();
            }
        };
        served.start();
        client.emplace(served.connect());
        EXPECT_TRUE(client->send(registration(1, {{kId, "a"}})));
        std::vector<uint32_t> codes;
        for (const RawAnswer& answer : client->receiveAll()) {
            codes.push_back(answer.code);
        }
        const RawClient other = served.connect();
        const std::optional<RawAnswer> answer =
            other.ask(QV_COMMAND_REGISTER_SERVICES, 3, encode({{kId, "c"}}));
        ASSERT_TRUE(answer);
        // The record is not tried again at once after a shortage.
        EXPECT_THAT(answer->code, AnyOf(QV_OK, QV_HOST_ERROR_NOT_KEPT));
        EXPECT_EQ(listedInTurn(other), (tests::Services{{kId, "c"}}));
        if (!hasFailed) {
            EXPECT_THAT(codes, ElementsAre(QV_OK, QV_OK));
        }
        client.reset();
        while (served.clients().count() != 1) {
            std::this_thread::yield();
        }
    }
    EXPECT_GE(count, 5);
}

}  // namespace
}  // namespace qv::host
