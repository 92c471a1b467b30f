// SPDX-License-Identifier: Apache-2.0

// Tests the choices that a client's options and the time-outs of its calls give.
#include <QvClient.h>
#include <QvFrame.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <utility>

#include "ClientCalls.h"
#include "ScriptedServer.h"
#include "support/OtherUser.h"
#include "support/TemporaryDirectory.h"

namespace qv::client {
namespace {

using std::chrono::milliseconds;
using tests::answering;
using tests::Failure;
using tests::failureOf;
using tests::Peer;
using tests::ScriptedServer;

ClientOptions optionsFor(const ScriptedServer& server) {
    ClientOptions options;
    options.socketPath = server.path();
    return options;
}

TEST(ClientOptions, NameTheSocketAndTheTimeout) {
    ScriptedServer server({[](Peer& peer) { peer.waitForEnd(); }});
    ClientOptions options = optionsFor(server);
    options.timeout = milliseconds(20);
    Client client(options);
    EXPECT_EQ(failureOf([&] { client.ping(); }).kind, Error::Kind::TimedOut);
}

TEST(ClientOptions, LetTheNamedUserAndRootServe) {
    ScriptedServer server({answering(QV_OK, ""), answering(QV_OK, "")});
    ClientOptions options = optionsFor(server);
    options.hostUser = ::geteuid();
    Client(options).ping();
    if (::geteuid() == 0) {
        options.hostUser = 1;
        Client(options).ping();
    }
}

TEST(ClientOptions, LetNoOtherUserServe) {
    const tests::TemporaryDirectory directory;
    tests::asOrdinaryUser(directory.path(""), [] {
        ScriptedServer server({[](Peer& peer) { EXPECT_EQ(peer.receiveBytes(1), ""); }});
        ClientOptions options = optionsFor(server);
        for (const uid_t other : {::geteuid() + 1, uid_t{0}}) {
            options.hostUser = other;
            const Failure failure = failureOf([&] { const Client client(options); });
            EXPECT_EQ(failure.kind, Error::Kind::WrongHost);
            EXPECT_EQ(failure.code, static_cast<int32_t>(::geteuid()));
            EXPECT_EQ(failure.text, "the host at " + server.path() + " runs as user " +
                                        std::to_string(::geteuid()) + ", not as user " +
                                        std::to_string(other) + " or root");
        }
    });
}

TEST(ClientTimeout, OfACallReplacesThatOfTheClient) {
    ScriptedServer server({[](Peer& peer) { peer.waitForEnd(); }, answering(QV_OK, "")});
    {
        Client patient(server.path(), kNoTimeout);
        EXPECT_EQ(failureOf([&] { patient.ping(milliseconds(20)); }).kind, Error::Kind::TimedOut);
    }
    Client hasty(server.path(), milliseconds(20));
    hasty.ping(kNoTimeout);
}

TEST(ClientTimeout, ThatIsOverBeforeItBeginsEndsTheCall) {
    ScriptedServer server({[](Peer& peer) { peer.waitForEnd(); }});
    Client client(server.path());
    EXPECT_EQ(failureOf([&] { client.ping(milliseconds(-1)); }).kind, Error::Kind::TimedOut);
}

TEST(Client, MovesItsConnection) {
    ScriptedServer server({answering(QV_OK, "")});
    Client first(server.path());
    first.ping();
    Client second(std::move(first));
    second.ping();
    first = std::move(second);
    first.ping();
}

TEST(ClientErrors, EscapeTheTextOfTheHost) {
    const std::string text = "a\nb\x1b[31m \xff c\\x1b";
    ScriptedServer server({answering(QV_HOST_ERROR_REFUSED, text)});
    Client client(server.path());
    EXPECT_EQ(failureOf([&] { client.ping(); }).text,
              "cannot ping the host: the host refused: a\\nb\\x1b[31m \\xff c\\x1b");
}

TEST(ClientChanges, EscapeTheReasonOfTheHost) {
    ScriptedServer server({answering(QV_HOST_ERROR_NOT_KEPT, "\\ \n")});
    Client client(server.path());
    EXPECT_EQ(client.registerServices({{1, "a"}}).reason, "\\ \\n");
}

}  // namespace
}  // namespace qv::client
