// SPDX-License-Identifier: Apache-2.0

// Tests the commands with which clients ask for single services and for what the host can do.
#include <QvFrame.h>
#include <QvHost.pb.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

#include "qvhost/RawClient.h"
#include "qvhost/server/DirectoryRequests.h"
#include "qvhost/server/ServedDirectory.h"
#include "qvhost/server/Users.h"
#include "support/LoadedPlugin.h"

namespace qv::host {
namespace {

using testing::Contains;
using tests::decode;
using tests::encode;
using tests::ServedDirectory;
using tests::Services;

std::string find(std::initializer_list<int32_t> ids) {
    wire::HostFind message;
    for (const int32_t id : ids) {
        message.add_ids(id);
    }
    return message.SerializeAsString();
}

wire::HostHello helloTo(const RawClient& client) {
    wire::HostHello hello;
    const std::optional<RawAnswer> answer = client.ask(QV_HOST_COMMAND_HELLO, 5);
    EXPECT_TRUE(answer && answer->code == QV_OK && hello.ParseFromString(answer->bytes));
    return hello;
}

TEST(ConversationFind, AnswerHasTheServicesThatExist) {
    ServedDirectory served;
    served.start();
    const RawClient client = served.connect();
    registerServices(client, {{-1, "/a"}, {7, "/b"}, {9, "/c"}});
    const std::optional<RawAnswer> answer =
        client.ask(QV_HOST_COMMAND_FIND, 3, find({9, 8, -1, 9}));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_OK});
    EXPECT_EQ(answer->number, 3U);
    EXPECT_EQ(decode(answer->bytes), (Services{{-1, "/a"}, {9, "/c"}}));
}

TEST(ConversationFind, ClientFindsItsOwnChanges) {
    ServedDirectory served;
    served.start();
    const RawClient client = served.connect();
    ASSERT_TRUE(client.send(frame(QV_COMMAND_REGISTER_SERVICES, 1, encode({{7, "/a"}})) +
                            frame(QV_HOST_COMMAND_FIND, 2, find({7})) +
                            frame(QV_COMMAND_UNREGISTER_SERVICES, 3, encode({{7, ""}})) +
                            frame(QV_HOST_COMMAND_FIND, 4, find({7}))));
    EXPECT_TRUE(client.receive());
    EXPECT_EQ(decode(client.receive()->bytes), (Services{{7, "/a"}}));
    EXPECT_TRUE(client.receive());
    EXPECT_EQ(client.receive()->bytes, "");
}

TEST(ConversationFind, InputThatDoesNotParseIsRefusedAlone) {
    ServedDirectory served;
    served.start();
    const RawClient client = served.connect();
    const std::optional<RawAnswer> answer = client.ask(QV_HOST_COMMAND_FIND, 3, "\xff");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_ERROR_ARGUMENT});
    EXPECT_EQ(answer->bytes, "");
    EXPECT_EQ(served.refusals(QV_ERROR_ARGUMENT), 1U);
    EXPECT_TRUE(client.works());
}

TEST(ConversationFind, LongAnswerWaitsForRoom) {
    constexpr std::size_t kShare = std::size_t{1024} * 1024;
    ServedDirectory served;
    served.limits.maxMemory = 4 * kShare;
    served.start();
    const RawClient owner = served.connect();
    wire::HostFind message;
    Services services;
    for (int32_t id = 0; id < 100; ++id) {
        message.add_ids(id);
        services.emplace_back(id, std::string(4000, 'a'));
    }
    registerServices(owner, services);
    Budget::Account holder(served.budget(), kOther);
    ASSERT_TRUE(holder.hold(kShare));
    const RawClient client = served.connect(kOther);
    ASSERT_TRUE(client.send(frame(QV_HOST_COMMAND_FIND, 1, message.SerializeAsString()) +
                            frame(QV_HOST_COMMAND_PING, 2)));
    // The conversation waits by now. The answer tells of the services of later.
    EXPECT_TRUE(served.connect().works());
    EXPECT_TRUE(served.connect().works());
    registerServices(owner, {{5, "late"}});
    char byte = 0;
    EXPECT_EQ(::recv(client.descriptor(), &byte, 1, MSG_DONTWAIT), -1);
    ASSERT_TRUE(holder.hold(0));
    services[5].second = "late";
    const std::optional<RawAnswer> answer = client.receive();
    ASSERT_TRUE(answer);
    EXPECT_TRUE(decode(answer->bytes) == services);
    EXPECT_EQ(client.receive()->number, 2U);
}

TEST(ConversationHello, HostTellsWhatItCanDo) {
    ServedDirectory served;
    served.start();
    const wire::HostHello hello = helloTo(served.connect());
    EXPECT_EQ(hello.edition(), uint32_t{QV_PROTOCOL_EDITION});
    EXPECT_EQ(hello.version(), "1.2");
    EXPECT_THAT(hello.commands(), Contains(uint32_t{QV_HOST_COMMAND_FIND}));
    EXPECT_THAT(hello.commands(), Contains(uint32_t{QV_COMMAND_GET_SERVICES}));
    EXPECT_EQ(hello.longest_request(), served.limits.maxMessage);
    EXPECT_EQ(hello.most_services(), kMostServices);
    EXPECT_EQ(hello.most_address_bytes(), kMostAddressBytes);
    EXPECT_EQ(hello.longest_address(), kLongestAddress);
    EXPECT_EQ(hello.most_ids(), 1000U);
}

TEST(ConversationHello, LongestRequestIsThatOfTheUser) {
    ServedDirectory served;
    served.limits.maxMemory = std::size_t{4} * 1024 * 1024;
    served.start();
    const RawClient client = served.connect(kOther);
    const std::size_t longest = helloTo(client).longest_request();
    EXPECT_EQ(client.ask(QV_HOST_COMMAND_PING, 1, std::string(longest, 'x'))->code,
              uint32_t{QV_OK});
    const std::string tooLong = frame(QV_HOST_COMMAND_PING, 2, std::string(longest + 1, 'x'));
    ASSERT_TRUE(client.send(tooLong.substr(0, QV_FRAME_HEADER_SIZE)));
    EXPECT_EQ(client.receive()->code, uint32_t{QV_HOST_ERROR_LENGTH});
}

TEST(ConversationHello, InputDoesNotMatter) {
    ServedDirectory served;
    served.start();
    EXPECT_EQ(served.connect().ask(QV_HOST_COMMAND_HELLO, 5, "\xff")->code, uint32_t{QV_OK});
}

}  // namespace
}  // namespace qv::host
