// SPDX-License-Identifier: Apache-2.0

#include "server/Conversation.h"

#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qvhost/RawClient.h"
#include "qvhost/server/NumberedRequests.h"
#include "qvhost/server/ServedDirectory.h"
#include "qvhost/server/Users.h"
#include "support/Files.h"
#include "support/LoadedPlugin.h"

namespace qv::host {
namespace {

using testing::HasSubstr;
using testing::SizeIs;
using tests::decode;
using tests::ServedDirectory;
using tests::Services;

// Returns services whose listing exceeds a socket.
Services longServices() {
    Services services;
    for (int32_t id = 0; id < 3000; ++id) {
        services.emplace_back(id, std::string(1000, static_cast<char>('a' + id % 26)));
    }
    return services;
}

class ConversationTest : public testing::Test {
  protected:
    ServedDirectory served;
};

TEST_F(ConversationTest, RequestsThatArriveTogetherAreAnsweredInTheirOrder) {
    served.start();
    const RawClient client = served.connect();
    ASSERT_TRUE(client.send(ping(1) + registration(2, {{5, "e"}}) + listing(3) +
                            registration(4, {{6, "f"}}) + withdrawal(5, 5) + listing(6) + ping(7) +
                            frame(QV_HOST_COMMAND_STATUS, 8) + frame(0x0fff, 9)));
    next(client, 1);
    next(client, 2);
    EXPECT_EQ(decode(next(client, 3).bytes), (Services{{5, "e"}}));
    next(client, 4);
    next(client, 5);
    EXPECT_EQ(decode(next(client, 6).bytes), (Services{{6, "f"}}));
    next(client, 7);
    EXPECT_EQ(next(client, 8).bytes, "status");
    next(client, 9, QV_HOST_ERROR_COMMAND);
    EXPECT_TRUE(client.works());
}

TEST_F(ConversationTest, ConsecutiveChangesAreOneCommit) {
    served.start();
    const RawClient client = served.connect();
    std::string requests;
    for (uint32_t number = 1; number <= 100; ++number) {
        requests += registration(number, {{static_cast<int32_t>(number), "a"}});
    }
    ASSERT_TRUE(client.send(requests));
    for (uint32_t number = 1; number <= 100; ++number) {
        next(client, number);
    }
    EXPECT_EQ(served.recorder().statistics().mostChanges, 100U);
    EXPECT_EQ(listedInTurn(client).size(), 100U);
}

TEST_F(ConversationTest, ManyChangesComeInBoundedBatches) {
    served.start();
    const RawClient client = served.connect();
    std::string requests;
    constexpr uint32_t kChanges = 5000;
    for (uint32_t number = 1; number <= kChanges; ++number) {
        requests += registration(number, {{7, std::to_string(number)}});
    }
    ASSERT_TRUE(client.send(requests + listing(0)));
    for (uint32_t number = 1; number <= kChanges; ++number) {
        ASSERT_EQ(next(client, number).code, uint32_t{QV_OK});
    }
    EXPECT_EQ(decode(next(client, 0).bytes), (Services{{7, std::to_string(kChanges)}}));
    EXPECT_LE(served.recorder().statistics().mostChanges, kChangesOfBatch);
}

TEST_F(ConversationTest, RefusedChangesAreAnsweredInTheirPlaces) {
    served.start();
    const RawClient client = served.connect();
    ASSERT_TRUE(client.send(registration(1, {{1, ""}}) + registration(2, {{2, "b"}}) +
                            registration(3, {{3, ""}}) +
                            frame(QV_COMMAND_REGISTER_SERVICES, 4, "\xff") + ping(5)));
    next(client, 1, QV_HOST_ERROR_REFUSED);
    next(client, 2);
    next(client, 3, QV_HOST_ERROR_REFUSED);
    next(client, 4, QV_ERROR_ARGUMENT);
    next(client, 5);
    EXPECT_EQ(listedInTurn(client), (Services{{2, "b"}}));
    EXPECT_EQ(served.refusals(QV_HOST_ERROR_REFUSED), 2U);
}

TEST_F(ConversationTest, ChangesOfAClientThatHasGoneAreMade) {
    served.start();
    for (int32_t id = 1; id <= 50; ++id) {
        ASSERT_TRUE(served.connect().send(registration(1, {{id, "a"}})));
    }
    served.stop().wait();
    EXPECT_EQ(served.recorder().state()->snapshot->size(), 50U);
}

TEST_F(ConversationTest, LevelIsForRootAndTheOwner) {
    served.start();
    // The level 3 of this plug-in.
    const std::string level("\x08\x01\x10\x03", 4);
    const RawClient owner = served.connect();
    ASSERT_TRUE(owner.send(frame(QV_COMMAND_SET_DEBUG_LEVEL, 1, level) + ping(2)));
    const std::optional<RawAnswer> answer = owner.receive();
    ASSERT_TRUE(answer);
    EXPECT_NE(answer->code, uint32_t{QV_HOST_ERROR_PRIVILEGE});
    next(owner, 2);
    const RawClient other = served.connect(kOther);
    ASSERT_TRUE(other.send(frame(QV_COMMAND_SET_DEBUG_LEVEL, 1, level) + ping(2)));
    next(other, 1, QV_HOST_ERROR_PRIVILEGE);
    next(other, 2);
}

TEST_F(ConversationTest, AnswerThatComesLaterKeepsItsPlace) {
    served.start();
    const RawClient client = served.connect();
    ASSERT_TRUE(client.send(ping(1) + registration(2, {{5, "e"}}) + frame(QV_HOST_COMMAND_SYNC, 3) +
                            listing(4) + frame(QV_HOST_COMMAND_SYNC, 5) +
                            frame(QV_HOST_COMMAND_SYNC, 6)));
    next(client, 1);
    next(client, 2);
    next(client, 3);
    EXPECT_THAT(tests::contentOf(served.path()).value_or(""), HasSubstr("<string>e</string>"));
    next(client, 4);
    next(client, 5);
    next(client, 6);
}

// The follower's next turn would come after an hour.
TEST_F(ConversationTest, ClientThatLeavesDoesNotTakeTheConversationWithIt) {
    served.pace.pause = std::chrono::hours(1);
    served.start();
    {
        const RawClient client = served.connect();
        ASSERT_TRUE(client.send(registration(1, {{5, "e"}}) +
                                frame(QV_HOST_COMMAND_SYNC, 2, std::string(50'000, 'x'))));
        next(client, 1);
        EXPECT_TRUE(served.connect().works());
        EXPECT_TRUE(served.connect().works());
        EXPECT_EQ(served.budget().held(), 0U);
    }
    std::future<void> gone = served.stop();
    EXPECT_EQ(gone.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    served.follower().stop();
    gone.wait();
}

TEST_F(ConversationTest, ClientThatDoesNotReadIsNotReadFrom) {
    served.start();
    const RawClient writer = served.connect();
    Services services;
    for (int32_t id = 0; id < 1000; ++id) {
        services.emplace_back(id, "/run/service" + std::to_string(id));
    }
    ASSERT_TRUE(writer.send(registration(1, services)));
    next(writer, 1);
    const RawClient deaf = served.connect();
    uint32_t sent = 0;
    // The test fails if the host takes requests without end.
    while (sent < 1'000'000 && deaf.sendSome(listing(sent))) {
        ++sent;
    }
    EXPECT_LT(sent, 1'000'000U);
    EXPECT_TRUE(writer.works());
    for (uint32_t number = 0; number < sent; ++number) {
        // A failure must not print the bytes.
        ASSERT_TRUE(decode(next(deaf, number).bytes) == services) << number;
    }
    EXPECT_TRUE(deaf.works());
}

// Otherwise the answers of a client that does not read would fill the memory.
TEST_F(ConversationTest, RequestsOfAClientThatDoesNotReadWait) {
    served.start();
    const RawClient writer = served.connect();
    Services services;
    for (int32_t id = 1; id <= 1000; ++id) {
        services.emplace_back(id, "/run/service" + std::to_string(id));
    }
    ASSERT_TRUE(writer.send(registration(1, services)));
    next(writer, 1);
    const RawClient deaf = served.connect();
    constexpr uint32_t kListings = 1000;
    std::string requests;
    for (uint32_t number = 0; number < kListings; ++number) {
        requests += listing(number);
    }
    ASSERT_TRUE(deaf.send(requests));
    EXPECT_TRUE(writer.works());
    EXPECT_TRUE(writer.works());
    ASSERT_TRUE(writer.send(registration(2, {{0, "late"}})));
    next(writer, 2);
    Services last;
    for (uint32_t number = 0; number < kListings; ++number) {
        last = decode(next(deaf, number).bytes);
    }
    EXPECT_EQ(last.front(), (tests::Service{0, "late"}));
}

TEST_F(ConversationTest, ClientThatDoesNotReadForTooLongIsDisconnected) {
    served.limits.frameTimeout = std::chrono::hours(1);
    served.start();
    const RawClient client = served.connect();
    ASSERT_TRUE(client.send(registration(1, longServices())));
    next(client, 1);
    ASSERT_TRUE(client.send(listing(2)));
    // The conversation waits for the client by now.
    EXPECT_TRUE(served.connect().works());
    EXPECT_TRUE(served.connect().works());
    served.passTime(std::chrono::hours(2));
    std::size_t received = 0;
    char bytes[65536];
    ssize_t count = 0;
    while ((count = ::recv(client.descriptor(), bytes, sizeof bytes, 0)) > 0) {
        received += static_cast<std::size_t>(count);
    }
    EXPECT_EQ(count, 0);
    EXPECT_LT(received, 3'000'000U);
}

TEST_F(ConversationTest, LongListingArrivesWholeHoweverSlowlyItIsRead) {
    served.start();
    const RawClient client = served.connect();
    const Services services = longServices();
    ASSERT_TRUE(client.send(registration(1, services)));
    next(client, 1);
    ASSERT_TRUE(client.send(listing(2) + frame(QV_HOST_COMMAND_SYNC, 3) + ping(4) + listing(5)));
    // The answer to the second request must not overtake the first one's.
    EXPECT_TRUE(served.connect().ask(QV_HOST_COMMAND_SYNC, 1));
    EXPECT_TRUE(decode(next(client, 2).bytes) == services);
    next(client, 3);
    next(client, 4);
    EXPECT_TRUE(decode(next(client, 5).bytes) == services);
    EXPECT_TRUE(client.works());
    EXPECT_EQ(served.budget().held(), 0U);
}

TEST_F(ConversationTest, RequestMayArriveByteByByte) {
    served.start();
    const RawClient client = served.connect();
    for (const char byte : registration(7, {{5, "e"}}) + ping(8)) {
        ASSERT_TRUE(client.send(std::string(1, byte)));
    }
    client.endSending();
    const std::vector<RawAnswer> answers = client.receiveAll();
    ASSERT_THAT(answers, SizeIs(2));
    EXPECT_EQ(answers[0].number, 7U);
    EXPECT_EQ(answers[1].number, 8U);
}

TEST_F(ConversationTest, RequestThatArrivedIsAnsweredBeforeTheEnd) {
    served.start();
    const RawClient client = served.connect();
    ASSERT_TRUE(client.send(registration(1, {{5, "e"}}) + listing(2) + ping(3).substr(0, 5)));
    std::future<void> gone = served.stop();
    next(client, 1);
    EXPECT_EQ(decode(next(client, 2).bytes), (Services{{5, "e"}}));
    next(client, 0, QV_HOST_ERROR_STOPPING);
    EXPECT_FALSE(client.receive());
    gone.wait();
    EXPECT_EQ(served.refusals(QV_HOST_ERROR_STOPPING), 1U);
}

TEST_F(ConversationTest, LateAndIdleClientsAreToldWhy) {
    served.limits.idleTimeout = std::chrono::hours(3);
    served.limits.frameTimeout = std::chrono::hours(1);
    served.start();
    const RawClient late = served.connect();
    ASSERT_TRUE(late.send(ping(1) + registration(2, {{5, "e"}}).substr(0, 14)));
    next(late, 1);
    const RawClient idle = served.connect();
    EXPECT_TRUE(idle.works());
    // The conversation of the late client waits for the rest by now.
    EXPECT_TRUE(served.connect().works());
    served.passTime(std::chrono::hours(2));
    EXPECT_EQ(next(late, 2, QV_HOST_ERROR_TIMEOUT).bytes, "the request did not arrive in time");
    EXPECT_TRUE(idle.works());
    EXPECT_TRUE(served.connect().works());
    served.passTime(std::chrono::hours(4));
    EXPECT_EQ(next(idle, 0, QV_HOST_ERROR_TIMEOUT).bytes, "no request for too long");
    EXPECT_FALSE(idle.receive());
}

TEST_F(ConversationTest, LongRequestIsRefusedAfterTheAnswersBeforeIt) {
    served.limits.maxMessage = 100;
    served.start();
    const RawClient client = served.connect();
    const std::string longOne = registration(3, {{5, std::string(200, 'x')}});
    ASSERT_TRUE(client.send(ping(1) + registration(2, {{5, "e"}}) + longOne));
    next(client, 1);
    next(client, 2);
    EXPECT_EQ(next(client, 3, QV_HOST_ERROR_LENGTH).bytes,
              "the request has " + std::to_string(longOne.size() - QV_FRAME_HEADER_SIZE) +
                  " bytes, and the host takes 100");
    EXPECT_FALSE(client.receive());
}

}  // namespace
}  // namespace qv::host
