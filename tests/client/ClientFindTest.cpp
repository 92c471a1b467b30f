// SPDX-License-Identifier: Apache-2.0

// Tests how a client finds services and learns what a host can do.
#include <QvClient.h>
#include <QvFrame.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ClientCalls.h"
#include "QvHost.pb.h"
#include "ScriptedServer.h"

namespace qv::client {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using tests::answering;
using tests::Failure;
using tests::failureOf;
using tests::listOf;
using tests::noting;
using tests::Request;
using tests::ScriptedServer;

using Ids = std::vector<int32_t>;

TEST(ClientFind, AsksForTheIdentifiers) {
    std::vector<Request> requests;
    {
        ScriptedServer server({noting(requests)});
        Client client(server.path());
        EXPECT_THAT(client.find({7, -1, 7}), IsEmpty());
        EXPECT_EQ(client.find(8), std::nullopt);
    }
    ASSERT_THAT(requests, SizeIs(2));
    host::wire::HostFind message;
    EXPECT_EQ(requests[0].command, uint32_t{QV_HOST_COMMAND_FIND});
    ASSERT_TRUE(message.ParseFromString(requests[0].input));
    EXPECT_THAT(message.ids(), ElementsAre(7, -1, 7));
    ASSERT_TRUE(message.ParseFromString(requests[1].input));
    EXPECT_THAT(message.ids(), ElementsAre(8));
}

TEST(ClientFind, ReturnsTheServicesThatTheHostHas) {
    ScriptedServer server({answering(QV_OK, listOf({{-1, "a"}, {7, "b\xff"}}))});
    Client client(server.path());
    const std::vector<Service> found = client.find({7, 8, -1});
    ASSERT_THAT(found, SizeIs(2));
    EXPECT_EQ(found[0].id, -1);
    EXPECT_EQ(found[0].address, "a");
    EXPECT_EQ(found[1].id, 7);
    EXPECT_EQ(found[1].address, "b\xff");
}

TEST(ClientFind, ReturnsTheAddressOfOneService) {
    ScriptedServer server({answering(QV_OK, listOf({{7, "b"}}))});
    Client client(server.path());
    EXPECT_EQ(client.find(7), "b");
}

TEST(ClientFind, SendsNothingWithoutIdentifiers) {
    std::vector<Request> requests;
    {
        ScriptedServer server({noting(requests)});
        Client client(server.path());
        EXPECT_THAT(client.find(Ids{}), IsEmpty());
    }
    EXPECT_THAT(requests, IsEmpty());
}

TEST(ClientFind, TakesNoOtherServicesThanThoseAskedFor) {
    const std::string broken[] = {
        listOf({{3, "a"}}),
        listOf({{1, "a"}, {1, "a"}}),
        listOf({{2, "a"}, {1, "a"}}),
        listOf({{1, "a"}, {2, "b"}, {3, "c"}}),
        "\x0a",
    };
    for (const std::string& answer : broken) {
        ScriptedServer server({answering(QV_OK, answer)});
        Client client(server.path());
        const Failure failure = failureOf([&] { client.find({2, 1}); });
        EXPECT_EQ(failure.kind, Error::Kind::BrokenAnswer);
        EXPECT_THAT(failure.text, HasSubstr("cannot find 2 services: the host's answer is broken"));
    }
}

// Two bytes name a service. So an answer of a few MiB would take many times its memory.
TEST(ClientFind, TakesNoAnswerOfMoreServicesThanAHostKeeps) {
    std::string answer;
    for (int i = 0; i < 2'000'001; ++i) {
        answer.append("\x0a\0", 2);
    }
    ScriptedServer server({answering(QV_OK, answer), answering(QV_OK, answer.substr(2))});
    {
        Client client(server.path());
        EXPECT_EQ(failureOf([&] { client.services(); }).kind, Error::Kind::BrokenAnswer);
    }
    Client client(server.path());
    EXPECT_THAT(client.services(), SizeIs(2'000'000));
}

TEST(ClientAbilities, AreWhatTheHostSaysInItsHello) {
    host::wire::HostHello hello;
    hello.set_edition(9);
    hello.set_version("1.2.3");
    hello.add_commands(7);
    hello.add_commands(3);
    hello.set_longest_request(10);
    hello.set_most_services(11);
    hello.set_most_address_bytes(12);
    hello.set_longest_address(13);
    hello.set_most_ids(14);
    ScriptedServer server({answering(QV_OK, hello.SerializeAsString())});
    const HostAbilities abilities = Client(server.path()).abilities();
    EXPECT_EQ(abilities.edition, 9U);
    EXPECT_EQ(abilities.version, "1.2.3");
    EXPECT_THAT(abilities.commands, ElementsAre(3U, 7U));
    EXPECT_EQ(abilities.longestRequest, 10U);
    EXPECT_EQ(abilities.mostServices, 11U);
    EXPECT_EQ(abilities.mostAddressBytes, 12U);
    EXPECT_EQ(abilities.longestAddress, 13U);
    EXPECT_EQ(abilities.mostIds, 14U);
}

TEST(ClientAbilities, AreAskedForInAHello) {
    std::vector<Request> requests;
    {
        ScriptedServer server({noting(requests)});
        Client client(server.path());
        EXPECT_EQ(failureOf([&] { client.abilities(); }).kind, Error::Kind::BrokenAnswer);
    }
    ASSERT_THAT(requests, SizeIs(1));
    EXPECT_EQ(requests[0].command, uint32_t{QV_HOST_COMMAND_HELLO});
    host::wire::HostHello hello;
    ASSERT_TRUE(hello.ParseFromString(requests[0].input));
    EXPECT_EQ(hello.edition(), uint32_t{QV_PROTOCOL_EDITION});
    EXPECT_EQ(hello.version(), "libQvClient " QV_CLIENT_VERSION_TEXT);
}

TEST(ClientAbilities, AreThoseOfEdition1IfTheHostHasNoHello) {
    ScriptedServer server({answering(QV_HOST_ERROR_COMMAND, "no such command")});
    const HostAbilities abilities = Client(server.path()).abilities();
    EXPECT_EQ(abilities.edition, 1U);
    EXPECT_THAT(abilities.commands, IsEmpty());
}

}  // namespace
}  // namespace qv::client
