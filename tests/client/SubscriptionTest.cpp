// SPDX-License-Identifier: Apache-2.0

// Tests how a subscription follows a host.
#include <QvClient.h>
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ClientCalls.h"
#include "HostEvents.h"
#include "ScriptedServer.h"

namespace qv::client {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tests::eventAt;
using tests::Failure;
using tests::failureOf;
using tests::idle;
using tests::kEpoch;
using tests::Peer;
using tests::registration;
using tests::Request;
using tests::ScriptedServer;
using tests::sending;
using tests::sendingOnly;
using tests::snapshot;
using tests::withdrawal;

using Kind = Event::Kind;

// Returns a subscription of a client that is gone already.
Subscription subscriptionTo(const ScriptedServer& server, const std::vector<int32_t>& ids = {},
                            milliseconds timeout = kNoTimeout) {
    return Client(server.path(), timeout).subscribe(ids);
}

Event nextOf(Subscription& subscription) {
    std::optional<Event> event = subscription.next();
    return event ? std::move(*event) : Event{};
}

std::string textOf(const std::vector<Service>& services) {
    std::string text;
    for (const Service& service : services) {
        text += std::to_string(service.id) + '=' + service.address + ' ';
    }
    return text;
}

host::wire::HostSubscription subscriptionIn(const Request& request) {
    EXPECT_EQ(request.command, uint32_t{QV_HOST_COMMAND_SUBSCRIBE});
    host::wire::HostSubscription message;
    EXPECT_TRUE(message.ParseFromString(request.input));
    return message;
}

TEST(Subscription, AsksForTheIdentifiersOnAConnectionOfItsOwn) {
    Request request;
    ScriptedServer server({idle, [&](Peer& peer) {
                               request = peer.receive();
                               sendEvent(peer, snapshot(1, {}), request.number);
                               peer.waitForEnd();
                           }});
    Subscription subscription = subscriptionTo(server, {7, -2});
    EXPECT_EQ(nextOf(subscription).kind, Kind::Snapshot);
    const host::wire::HostSubscription message = subscriptionIn(request);
    EXPECT_THAT(message.ids(), testing::UnorderedElementsAre(7, -2));
    EXPECT_FALSE(message.has_epoch());
    EXPECT_FALSE(message.has_revision());
}

TEST(Subscription, TellsOfAllServicesAndThenOfEachChange) {
    ScriptedServer server(
        {idle,
         sending({snapshot(5, {{-1, "a"}, {2, "b\xff"}}), registration(6, {{3, "c"}, {4, ""}}),
                  tests::move(8, {2, "d"}), withdrawal(9, {-1, 3}), snapshot(20, {})})});
    Subscription subscription = subscriptionTo(server);
    Event event = nextOf(subscription);
    EXPECT_EQ(event.kind, Kind::Snapshot);
    EXPECT_EQ(event.revision, 5);
    EXPECT_EQ(textOf(event.registered), "-1=a 2=b\xff ");
    event = nextOf(subscription);
    EXPECT_EQ(event.kind, Kind::Change);
    EXPECT_EQ(event.revision, 6);
    EXPECT_EQ(textOf(event.registered), "3=c 4= ");
    EXPECT_THAT(event.changed, IsEmpty());
    EXPECT_THAT(event.withdrawn, IsEmpty());
    event = nextOf(subscription);
    EXPECT_EQ(textOf(event.changed), "2=d ");
    EXPECT_THAT(event.registered, IsEmpty());
    event = nextOf(subscription);
    EXPECT_EQ(event.revision, 9);
    EXPECT_THAT(event.withdrawn, ElementsAre(-1, 3));
    event = nextOf(subscription);
    EXPECT_EQ(event.kind, Kind::Snapshot);
    EXPECT_THAT(event.registered, IsEmpty());
}

TEST(Subscription, ReturnsNothingIfTheTimePasses) {
    ScriptedServer server({idle, sending({snapshot(1, {})})});
    Subscription subscription = subscriptionTo(server);
    EXPECT_EQ(nextOf(subscription).kind, Kind::Snapshot);
    EXPECT_FALSE(subscription.next(milliseconds(0)));
    EXPECT_FALSE(subscription.next(milliseconds(20)));
}

// The client's time-out is for answers. Changes may take any time.
TEST(Subscription, WaitsForChangesLongerThanForAnswers) {
    // On a busy machine, some answers may be too slow.
    std::vector<ScriptedServer::Script> scripts(200, sending({snapshot(1, {})}));
    scripts.front() = idle;
    ScriptedServer server(scripts);
    Subscription subscription = subscriptionTo(server, {}, milliseconds(20));
    while (nextOf(subscription).kind != Kind::Snapshot) {
    }
    EXPECT_FALSE(subscription.next(milliseconds(100)));
}

TEST(Subscription, ConnectsAgainAndNamesWhatItKnows) {
    Request second;
    ScriptedServer server(
        {idle, sendingOnly({snapshot(5, {{1, "a"}}), withdrawal(7, {1})}), [&](Peer& peer) {
             second = peer.receive();
             sendEvent(peer, eventAt(7), second.number);
             sendEvent(peer, registration(8, {{2, "b"}}), second.number);
             peer.waitForEnd();
         }});
    Subscription subscription = subscriptionTo(server, {1, 2});
    EXPECT_EQ(nextOf(subscription).revision, 5);
    EXPECT_EQ(nextOf(subscription).revision, 7);
    const Event away = nextOf(subscription);
    EXPECT_EQ(away.kind, Kind::Disconnected);
    EXPECT_EQ(away.reason, "the host closed the connection");
    const Event back = nextOf(subscription);
    EXPECT_EQ(back.kind, Kind::Change);
    EXPECT_EQ(back.revision, 7);
    EXPECT_EQ(textOf(nextOf(subscription).registered), "2=b ");
    const host::wire::HostSubscription message = subscriptionIn(second);
    EXPECT_THAT(message.ids(), ElementsAre(1, 2));
    EXPECT_EQ(message.epoch(), kEpoch);
    EXPECT_EQ(message.revision(), 7);
}

// Each run of the host has an epoch of its own.
TEST(Subscription, GoesOnWithAHostThatWasStartedAgain) {
    tests::WireEvent resumed = registration(6, {{1, "a"}});
    resumed.set_epoch(kEpoch + 1);
    tests::WireEvent startedOver = snapshot(2, {{3, "c"}});
    startedOver.set_epoch(kEpoch + 2);
    ScriptedServer server(
        {idle, sendingOnly({snapshot(5, {})}), sendingOnly({resumed}), sending({startedOver})});
    Subscription subscription = subscriptionTo(server);
    EXPECT_EQ(nextOf(subscription).revision, 5);
    EXPECT_EQ(nextOf(subscription).kind, Kind::Disconnected);
    EXPECT_EQ(nextOf(subscription).revision, 6);
    EXPECT_EQ(nextOf(subscription).kind, Kind::Disconnected);
    const Event event = nextOf(subscription);
    EXPECT_EQ(event.kind, Kind::Snapshot);
    EXPECT_EQ(event.revision, 2);
}

TEST(Subscription, SaysOnceThatTheHostIsAway) {
    const auto closing = [](Peer& peer) { peer.receive(); };
    const auto stopping = [](Peer& peer) {
        peer.receive();
        peer.answer(QV_HOST_ERROR_STOPPING, "bye\n", 0);
    };
    ScriptedServer server({idle, stopping, closing, stopping, sendingOnly({snapshot(1, {})}),
                           stopping, sending({snapshot(1, {})})});
    Subscription subscription = subscriptionTo(server);
    const Event away = nextOf(subscription);
    EXPECT_EQ(away.kind, Kind::Disconnected);
    EXPECT_EQ(away.reason, "the host refused: bye\\n");
    EXPECT_EQ(nextOf(subscription).kind, Kind::Snapshot);
    EXPECT_EQ(nextOf(subscription).kind, Kind::Disconnected);
    EXPECT_EQ(nextOf(subscription).kind, Kind::Snapshot);
}

TEST(Subscription, TellsThatNoHostIsThere) {
    std::optional<Subscription> subscription;
    {
        ScriptedServer server({idle});
        subscription = subscriptionTo(server);
    }
    const Event away = nextOf(*subscription);
    EXPECT_EQ(away.kind, Kind::Disconnected);
    EXPECT_THAT(away.reason, HasSubstr("cannot reach the host at "));
    EXPECT_FALSE(subscription->next(milliseconds(50)));
}

TEST(Subscription, LosesAHostThatDoesNotAnswer) {
    const ScriptedServer::Script broken[] = {idle, [](Peer& peer) {
                                                 const uint32_t number = peer.receive().number;
                                                 peer.send(tests::frameOf(QV_OK, 100, number, "x"));
                                                 peer.waitForEnd();
                                             }};
    for (const ScriptedServer::Script& script : broken) {
        ScriptedServer server({idle, script});
        Subscription subscription = subscriptionTo(server, {}, milliseconds(20));
        const Event away = nextOf(subscription);
        EXPECT_EQ(away.kind, Kind::Disconnected);
        EXPECT_EQ(away.reason, "the host did not answer in time");
    }
}

TEST(Subscription, ThrowsIfTheHostRefusesAndTriesAgain) {
    for (const uint32_t code :
         {QV_HOST_ERROR_COMMAND, QV_HOST_ERROR_FORBIDDEN, QV_HOST_ERROR_PLUGIN}) {
        ScriptedServer server({idle,
                               [=](Peer& peer) {
                                   peer.answer(code, "no\x1b", peer.receive().number);
                                   peer.waitForEnd();
                               },
                               sending({snapshot(1, {})})});
        Subscription subscription = subscriptionTo(server);
        const Failure failure = failureOf([&] { subscription.next(); });
        EXPECT_EQ(failure.kind, Error::Kind::Refused);
        EXPECT_EQ(failure.code, static_cast<int32_t>(code));
        EXPECT_EQ(failure.text, "cannot follow the services: the host refused: no\\x1b");
        EXPECT_EQ(nextOf(subscription).kind, Kind::Snapshot);
    }
}

TEST(Subscription, ReadsAnEventThatComesByteByByte) {
    ScriptedServer server(
        {idle, [](Peer& peer) {
             const uint32_t number = peer.receive().number;
             const std::string bytes = snapshot(5, {{1, "a"}}).SerializeAsString();
             for (const char byte :
                  tests::frameOf(QV_OK, static_cast<uint32_t>(bytes.size()), number, bytes)) {
                 peer.send(std::string(1, byte));
             }
             peer.waitForEnd();
         }});
    Subscription subscription = subscriptionTo(server);
    EXPECT_EQ(textOf(nextOf(subscription).registered), "1=a ");
}

TEST(Subscription, AsksForMoreIdentifiersThanASocketHolds) {
    constexpr int32_t kMany = 1'000'000;
    std::vector<int32_t> ids(kMany);
    std::iota(ids.begin(), ids.end(), 0);
    Request request;
    std::promise<void> mayRead;
    ScriptedServer server({idle, [&](Peer& peer) {
                               mayRead.get_future().wait();
                               request = peer.receive();
                               sendEvent(peer, snapshot(1, {}), request.number);
                               peer.waitForEnd();
                           }});
    Subscription subscription = subscriptionTo(server, ids);
    EXPECT_FALSE(subscription.next(milliseconds(0)));
    mayRead.set_value();
    EXPECT_EQ(nextOf(subscription).kind, Kind::Snapshot);
    EXPECT_EQ(subscriptionIn(request).ids_size(), kMany);
}

TEST(Subscription, Moves) {
    ScriptedServer server({idle, sending({snapshot(1, {}), eventAt(2), eventAt(3)})});
    Subscription first = subscriptionTo(server);
    EXPECT_EQ(nextOf(first).revision, 1);
    Subscription second = std::move(first);
    EXPECT_EQ(nextOf(second).revision, 2);
    first = std::move(second);
    EXPECT_EQ(nextOf(first).revision, 3);
}

bool isReadable(int descriptor, int timeout) {
    pollfd entry = {descriptor, POLLIN, 0};
    return ::poll(&entry, 1, timeout) == 1;
}

TEST(SubscriptionDescriptor, DrivesALoopThroughTheLossOfAHost) {
    ScriptedServer server({idle, sendingOnly({snapshot(1, {}), eventAt(2)}),
                           [](Peer& peer) { peer.receive(); }, sending({eventAt(2), eventAt(3)})});
    Subscription subscription = subscriptionTo(server);
    const int descriptor = subscription.descriptor();
    std::vector<Event> events;
    while (events.size() < 5) {
        ASSERT_TRUE(isReadable(descriptor, -1));
        while (std::optional<Event> event = subscription.next(milliseconds(0))) {
            events.push_back(std::move(*event));
        }
        ASSERT_EQ(subscription.descriptor(), descriptor);
    }
    std::vector<int64_t> revisions;
    revisions.reserve(events.size());
    for (const Event& event : events) {
        revisions.push_back(event.revision);
    }
    EXPECT_THAT(revisions, ElementsAre(1, 2, 0, 2, 3));
}

TEST(SubscriptionDescriptor, IsReadableOnlyIfThereIsSomethingToDo) {
    std::promise<void> mayGoOn;
    ScriptedServer server({idle, [&](Peer& peer) {
                               const uint32_t number = peer.receive().number;
                               sendEvent(peer, snapshot(1, {}), number);
                               mayGoOn.get_future().wait();
                               sendEvent(peer, eventAt(2), number);
                               peer.waitForEnd();
                           }});
    Subscription subscription = subscriptionTo(server);
    EXPECT_TRUE(isReadable(subscription.descriptor(), 0));
    EXPECT_EQ(nextOf(subscription).revision, 1);
    EXPECT_FALSE(subscription.next(milliseconds(0)));
    EXPECT_FALSE(isReadable(subscription.descriptor(), 0));
    mayGoOn.set_value();
    EXPECT_TRUE(isReadable(subscription.descriptor(), -1));
    EXPECT_EQ(nextOf(subscription).revision, 2);
}

}  // namespace
}  // namespace qv::client
