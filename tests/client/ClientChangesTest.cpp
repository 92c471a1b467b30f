// SPDX-License-Identifier: Apache-2.0

// Tests what a client learns about the changes, syncs and levels that it asks for.
#include <QvClient.h>
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ClientCalls.h"
#include "ScriptedServer.h"
#include "ServiceAddress.h"

namespace qv::client {
namespace {

using testing::SizeIs;
using tests::answering;
using tests::Failure;
using tests::failureOf;
using tests::moreThanASocketHolds;
using tests::noting;
using tests::Peer;
using tests::Request;
using tests::ScriptedServer;

TEST(ClientChanges, AreKeptIfTheHostSaysNothingElse) {
    ScriptedServer server({answering(QV_OK, "")});
    Client client(server.path());
    for (const ChangeResult& result :
         {client.registerServices({{1, "a"}}), client.unregisterServices({1}),
          client.registerServices({}), client.unregisterServices({})}) {
        EXPECT_TRUE(result.isKept);
        EXPECT_EQ(result.reason, "");
    }
}

TEST(ClientChanges, TellWhyTheyAreNotKept) {
    ScriptedServer server({answering(QV_HOST_ERROR_NOT_KEPT, "the disk is full")});
    Client client(server.path());
    for (const ChangeResult& result :
         {client.registerServices({{1, "a"}}), client.unregisterServices({1})}) {
        EXPECT_FALSE(result.isKept);
        EXPECT_EQ(result.reason, "the disk is full");
    }
}

TEST(ClientChanges, AreNotKeptWithoutAReasonAsWell) {
    ScriptedServer server({answering(QV_HOST_ERROR_NOT_KEPT, "")});
    Client client(server.path());
    const ChangeResult result = client.registerServices({{1, "a"}});
    EXPECT_FALSE(result.isKept);
    EXPECT_EQ(result.reason, "the host does not say why");
}

TEST(ClientChanges, KeepTheConnectionIfTheyAreNotKept) {
    ScriptedServer server({[](Peer& peer) {
        peer.answer(QV_HOST_ERROR_NOT_KEPT, "the disk is full", peer.receive().number);
        peer.answer(QV_OK, "", peer.receive().number);
        peer.waitForEnd();
    }});
    Client client(server.path());
    EXPECT_FALSE(client.registerServices({{1, "a"}}).isKept);
    EXPECT_TRUE(client.registerServices({{1, "a"}}).isKept);
}

TEST(ClientChanges, AreRefusedInTheHostsWords) {
    ScriptedServer server({answering(QV_HOST_ERROR_REFUSED, "100001 services are too many")});
    Client client(server.path());
    const Failure failure = failureOf([&] { client.registerServices({{4, "a"}}); });
    EXPECT_EQ(failure.kind, Error::Kind::Refused);
    EXPECT_EQ(failure.code, QV_HOST_ERROR_REFUSED);
    EXPECT_EQ(failure.text,
              "cannot register service 4: the host refused: 100001 services are too many");
}

// A host that makes a change has the whole request.
TEST(ClientChanges, CannotBeMadeBeforeTheRequestWasSent) {
    ScriptedServer server({[](Peer& peer) {
        peer.receiveBytes(QV_FRAME_HEADER_SIZE);
        peer.answer(QV_HOST_ERROR_NOT_KEPT, "", 1);
        peer.waitForEnd();
    }});
    Client client(server.path());
    EXPECT_EQ(failureOf([&] { client.registerServices(moreThanASocketHolds()); }).kind,
              Error::Kind::BrokenAnswer);
}

// The host would take the next request for the rest of the one that it refused.
TEST(ClientChanges, LeaveNoPartOfARefusedRequestInTheConnection) {
    ScriptedServer server({[](Peer& peer) {
                               peer.receiveBytes(QV_FRAME_HEADER_SIZE);
                               peer.answer(QV_HOST_ERROR_PRIVILEGE, "not you", 1);
                               peer.waitForEnd();
                           },
                           answering(QV_OK, "")});
    Client client(server.path());
    EXPECT_EQ(failureOf([&] { client.registerServices(moreThanASocketHolds()); }).code,
              QV_HOST_ERROR_PRIVILEGE);
    client.ping();
}

TEST(ClientChanges, AreNotSentIfTheDirectoryCannotHoldThem) {
    const std::string bad[] = {"", std::string("a\0b", 3), "a\xff", "\xef\xbb\xbf",
                               std::string(host::kLongestAddress + 1, 'x')};
    std::vector<Request> requests;
    {
        ScriptedServer server({noting(requests)});
        Client client(server.path());
        for (const std::string& address : bad) {
            const Failure failure = failureOf([&] {
                client.registerServices({{1, "a"}, {-7, address}});
            });
            EXPECT_EQ(failure.kind, Error::Kind::Argument);
            EXPECT_EQ(failure.code, 0);
            EXPECT_EQ(failure.text, std::string("cannot register 2 services: the address of -7 ") +
                                        host::problemOfAddress(address));
        }
        client.registerServices({{1, std::string(host::kLongestAddress, 'x')}});
    }
    EXPECT_THAT(requests, SizeIs(1));
}

TEST(ClientSync, ReturnsWhenTheFileHoldsTheDirectory) {
    std::vector<Request> requests;
    {
        ScriptedServer server({noting(requests)});
        Client client(server.path());
        client.sync();
    }
    ASSERT_THAT(requests, SizeIs(1));
    EXPECT_EQ(requests[0].command, uint32_t{QV_HOST_COMMAND_SYNC});
    EXPECT_EQ(requests[0].input, "");
}

TEST(ClientSync, TellsWhyTheFileDoesNotFollow) {
    ScriptedServer server({answering(QV_HOST_ERROR_FILE, "FILE may not be written")});
    Client client(server.path());
    const Failure failure = failureOf([&] { client.sync(); });
    EXPECT_EQ(failure.kind, Error::Kind::Refused);
    EXPECT_EQ(failure.code, QV_HOST_ERROR_FILE);
    EXPECT_EQ(failure.text,
              "cannot bring the plug-in's file up to the directory: the host refused: FILE may not "
              "be written");
}

TEST(ClientErrors, SayWhichLevelsThereAre) {
    ScriptedServer server({answering(QV_ERROR_ARGUMENT, "")});
    Client client(server.path());
    EXPECT_EQ(failureOf([&] { client.setDebugLevel(9); }).text,
              "cannot set the debug level to 9: level must be 0 to 7 (the plug-in refused it with "
              "20002)");
}

TEST(ClientErrors, SayThatTheLevelIsForOthers) {
    ScriptedServer server({answering(QV_HOST_ERROR_PRIVILEGE, "only root may do this")});
    Client client(server.path());
    const Failure failure = failureOf([&] { client.setDebugLevel(7); });
    EXPECT_EQ(failure.kind, Error::Kind::Refused);
    EXPECT_EQ(failure.code, QV_HOST_ERROR_PRIVILEGE);
    EXPECT_EQ(failure.text,
              "cannot set the debug level to 7: the host refused: only root may do this");
}

}  // namespace
}  // namespace qv::client
