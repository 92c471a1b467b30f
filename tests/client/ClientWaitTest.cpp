// SPDX-License-Identifier: Apache-2.0

// Tests how a client waits for services.
#include <QvClient.h>
#include <QvFrame.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ClientCalls.h"
#include "HostEvents.h"
#include "ScriptedServer.h"

namespace qv::client {
namespace {

using std::chrono::milliseconds;
using testing::IsEmpty;
using testing::SizeIs;
using tests::eventAt;
using tests::Failure;
using tests::failureOf;
using tests::Peer;
using tests::registration;
using tests::Request;
using tests::ScriptedServer;
using tests::sending;
using tests::sendingOnly;
using tests::snapshot;
using tests::withdrawal;

// A client of a server whose scripts serve the client's waiting.
class WaitingClient {
  public:
    explicit WaitingClient(const std::vector<ScriptedServer::Script>& scripts)
        : server_(withAcceptedClient(scripts)), client_(server_.path(), kNoTimeout) {}

    Client& get() { return client_; }

  private:
    // The client's own connection is the first one, and it may end.
    static std::vector<ScriptedServer::Script> withAcceptedClient(
        std::vector<ScriptedServer::Script> scripts) {
        scripts.insert(scripts.begin(), [](Peer&) {});
        return scripts;
    }

    ScriptedServer server_;
    Client client_;
};

TEST(ClientWait, ReturnsTheAddressThatIsThere) {
    WaitingClient client({sending({snapshot(5, {{7, "a"}})})});
    EXPECT_EQ(client.get().waitFor(7), "a");
}

TEST(ClientWait, AsksForTheServiceAlone) {
    Request request;
    {
        WaitingClient client({[&](Peer& peer) {
            request = peer.receive();
            sendEvent(peer, snapshot(5, {{7, "a"}}), request.number);
            peer.waitForEnd();
        }});
        client.get().waitFor(7);
    }
    EXPECT_EQ(request.command, uint32_t{QV_HOST_COMMAND_SUBSCRIBE});
    host::wire::HostSubscription message;
    ASSERT_TRUE(message.ParseFromString(request.input));
    EXPECT_THAT(message.ids(), testing::ElementsAre(7));
}

TEST(ClientWait, ReturnsTheAddressWhenItIsRegistered) {
    WaitingClient client({sending({snapshot(5, {}), eventAt(6), registration(9, {{7, "a"}})})});
    EXPECT_EQ(client.get().waitFor(7), "a");
}

TEST(ClientWait, OutlastsALostHost) {
    const auto stopping = [](Peer& peer) {
        peer.answer(QV_HOST_ERROR_STOPPING, "", peer.receive().number);
    };
    WaitingClient client({stopping, sendingOnly({snapshot(5, {})}), stopping,
                          sending({eventAt(5), registration(6, {{7, "a"}})})});
    EXPECT_EQ(client.get().waitFor(7), "a");
}

TEST(ClientWait, ReturnsWhenAllServicesAreThereAtTheSameTime) {
    WaitingClient client({sendingOnly({snapshot(1, {{1, "a"}, {2, "b"}}), withdrawal(2, {1}),
                                       registration(3, {{3, "c"}})}),
                          sendingOnly({snapshot(1, {{1, "x"}, {2, "b"}})}),
                          sendingOnly({snapshot(1, {{2, "b"}})}),
                          sending({registration(2, {{3, "c"}}), tests::move(3, {3, "d"}),
                                   registration(4, {{1, "e"}})})});
    const std::vector<Service> services = client.get().waitFor({3, 1, 2, 3});
    ASSERT_THAT(services, SizeIs(3));
    EXPECT_EQ(services[0].id, 1);
    EXPECT_EQ(services[0].address, "e");
    EXPECT_EQ(services[1].address, "b");
    EXPECT_EQ(services[2].id, 3);
    EXPECT_EQ(services[2].address, "d");
}

TEST(ClientWait, NeedsNothingForNoServices) {
    WaitingClient client({});
    EXPECT_THAT(client.get().waitFor(std::vector<int32_t>{}), IsEmpty());
}

// Returns the error of waiting for the services at a host that sends only this event.
Failure failureAfter(const tests::WireEvent& event, const std::vector<int32_t>& ids) {
    WaitingClient client({sending({event})});
    return failureOf([&] { client.get().waitFor(ids, milliseconds(200)); });
}

TEST(ClientWait, TellsWhatIsMissing) {
    Failure failure = failureAfter(snapshot(1, {}), {7});
    EXPECT_EQ(failure.kind, Error::Kind::TimedOut);
    EXPECT_EQ(failure.code, 0);
    EXPECT_EQ(failure.text, "cannot wait for service 7: service 7 was not registered in time");
    failure = failureAfter(snapshot(1, {}), {9, 7});
    EXPECT_EQ(
        failure.text,
        "cannot wait for 2 services: 2 services, the first is 7, were not registered in time");
}

TEST(ClientWait, TellsThatTheHostIsAway) {
    std::optional<Client> client;
    {
        ScriptedServer server({[](Peer&) {}});
        client.emplace(server.path());
    }
    const Failure failure = failureOf([&] { client->waitFor(7, milliseconds(1)); });
    EXPECT_EQ(failure.kind, Error::Kind::TimedOut);
    EXPECT_THAT(failure.text,
                testing::StartsWith("cannot wait for service 7: service 7 was not registered in "
                                    "time; cannot reach the host at "));
}

TEST(ClientWait, TellsThatTheHostHasNoSubscriptions) {
    WaitingClient client({[](Peer& peer) {
        peer.answer(QV_HOST_ERROR_COMMAND, "no such command", peer.receive().number);
        peer.waitForEnd();
    }});
    const Failure failure = failureOf([&] { client.get().waitFor(7); });
    EXPECT_EQ(failure.kind, Error::Kind::Refused);
    EXPECT_EQ(failure.text, "cannot wait for service 7: the host refused: no such command");
}

}  // namespace
}  // namespace qv::client
