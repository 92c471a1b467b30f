// SPDX-License-Identifier: Apache-2.0

// Tests that no host can harm a subscriber with broken events.
#include <QvClient.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ClientCalls.h"
#include "HostEvents.h"
#include "ScriptedServer.h"
#include "support/OtherUser.h"
#include "support/TemporaryDirectory.h"

namespace qv::client {
namespace {

using testing::StartsWith;
using tests::eventAt;
using tests::Failure;
using tests::failureOf;
using tests::frameOf;
using tests::idle;
using tests::kEpoch;
using tests::Peer;
using tests::registration;
using tests::Request;
using tests::ScriptedServer;
using tests::sending;
using tests::snapshot;
using tests::WireEvent;
using tests::withdrawal;

std::string frameOfEvent(const WireEvent& event, uint32_t number = 1) {
    const std::string bytes = event.SerializeAsString();
    return frameOf(QV_OK, static_cast<uint32_t>(bytes.size()), number, bytes);
}

std::string frameOfBytes(const std::string& bytes) {
    return frameOf(QV_OK, static_cast<uint32_t>(bytes.size()), 1, bytes);
}

WireEvent withEpoch(WireEvent event, std::optional<uint64_t> epoch) {
    event.clear_epoch();
    if (epoch) {
        event.set_epoch(*epoch);
    }
    return event;
}

WireEvent withoutRevision(WireEvent event) {
    event.clear_revision();
    return event;
}

WireEvent withoutId(WireEvent event) {
    event.mutable_registered(0)->clear_id();
    return event;
}

WireEvent merged(WireEvent event, const WireEvent& other) {
    event.MergeFrom(other);
    return event;
}

// Checks that the second frame that the host sends is refused, that the subscription connects
// again, and that it begins anew.
void expectBroken(const std::string& first, const std::string& broken, const std::string& what) {
    Request second;
    ScriptedServer server({idle,
                           [&](Peer& peer) {
                               peer.receive();
                               peer.send(first + broken);
                               peer.waitForEnd();
                           },
                           [&](Peer& peer) {
                               second = peer.receive();
                               sendEvent(peer, snapshot(1, {}), second.number);
                               peer.waitForEnd();
                           }});
    Subscription subscription = Client(server.path(), kNoTimeout).subscribe({1, 2, 3});
    if (!first.empty()) {
        EXPECT_EQ(subscription.next()->kind, Event::Kind::Snapshot);
    }
    const Failure failure = failureOf([&] { subscription.next(); });
    ASSERT_EQ(failure.kind, Error::Kind::BrokenAnswer) << what;
    EXPECT_THAT(failure.text,
                StartsWith("cannot follow the services: the host's answer is broken: "));
    EXPECT_EQ(subscription.next()->kind, Event::Kind::Snapshot) << what;
    host::wire::HostSubscription message;
    ASSERT_TRUE(message.ParseFromString(second.input));
    EXPECT_FALSE(message.has_epoch()) << what;
}

TEST(BrokenEvents, AreNoFirstEvents) {
    expectBroken("", frameOfEvent(snapshot(5, {}), 2), "a number of no request");
    expectBroken("", frameOfEvent(snapshot(5, {}), 0), "no request");
    expectBroken("", frameOf(QV_OK, 0x10000001, 1, ""), "a length of more than 256 MiB");
    expectBroken("", frameOf(QV_OK, 0xFFFFFFFF, 1, ""), "the longest length");
    expectBroken("", frameOfBytes(""), "no event");
    expectBroken("", frameOfBytes("\x0a"), "half a field");
    expectBroken("", frameOfBytes(std::string(1000, '\xff')), "garbage");
    expectBroken("", frameOfEvent(eventAt(5)), "a change before the snapshot");
    expectBroken("", frameOfEvent(withEpoch(snapshot(5, {}), std::nullopt)), "no epoch");
    expectBroken("", frameOfEvent(withoutRevision(snapshot(5, {}))), "no revision");
    expectBroken("", frameOfEvent(withoutId(snapshot(5, {{1, "a"}}))), "no identifier");
    expectBroken("", frameOfEvent(snapshot(5, {{1, "a"}, {1, "a"}})), "a service twice");
    expectBroken("", frameOfEvent(snapshot(5, {{4, "a"}})), "a service of others");
    expectBroken("", frameOfEvent(merged(snapshot(5, {}), withdrawal(5, {1}))),
                 "a snapshot that withdraws");
    expectBroken("", frameOfEvent(merged(snapshot(5, {}), tests::move(5, {1, "a"}))),
                 "a snapshot that changes");
}

TEST(BrokenEvents, DoNotFollowOthers) {
    const std::string first = frameOfEvent(snapshot(5, {}));
    expectBroken(first, frameOfEvent(eventAt(5)), "a revision twice");
    expectBroken(first, frameOfEvent(eventAt(4)), "an earlier revision");
    expectBroken(first, frameOfEvent(eventAt(INT64_MIN)), "the first revision");
    expectBroken(first, frameOfEvent(snapshot(4, {})), "an earlier snapshot");
    expectBroken(first, frameOfEvent(withEpoch(eventAt(6), kEpoch + 1)), "another epoch");
    expectBroken(first, frameOfEvent(withEpoch(snapshot(6, {}), kEpoch + 1)),
                 "a snapshot of another epoch");
    expectBroken(first, frameOfEvent(eventAt(6), 2), "a number of no request");
    expectBroken(first, frameOfEvent(registration(6, {{4, "a"}})), "a service of others");
    expectBroken(first, frameOfEvent(tests::move(6, {4, "a"})), "a change of others");
    expectBroken(first, frameOfEvent(withdrawal(6, {4})), "a withdrawal of others");
    expectBroken(first, frameOfEvent(withdrawal(6, {1, 1})), "a withdrawal twice");
    expectBroken(first, frameOfEvent(merged(registration(6, {{1, "a"}}), withdrawal(6, {1}))),
                 "a service that comes and goes");
    expectBroken(first, frameOfEvent(merged(registration(6, {{1, "a"}}), tests::move(6, {1, "b"}))),
                 "a service that comes and changes");
    expectBroken(frameOfEvent(snapshot(INT64_MAX, {})), frameOfEvent(eventAt(INT64_MIN)),
                 "a revision after the last one");
}

// Two bytes make a field. So an event of a few MiB could take many times its memory.
TEST(BrokenEvents, HaveMoreFieldsThanAHostKeepsServices) {
    std::string bytes = snapshot(5, {}).SerializeAsString();
    for (int i = 0; i < 2'000'000; ++i) {
        bytes.append("\x78\0", 2);
    }
    expectBroken("", frameOfBytes(bytes), "very many fields");
}

TEST(BrokenEvents, GoBackBehindWhatTheClientKnows) {
    const auto sendsOnly = [](const WireEvent& event) { return tests::sendingOnly({event}); };
    ScriptedServer server(
        {idle, sendsOnly(snapshot(5, {})), sendsOnly(eventAt(4)), sending({snapshot(4, {})})});
    Subscription subscription = Client(server.path(), kNoTimeout).subscribe();
    EXPECT_EQ(subscription.next()->kind, Event::Kind::Snapshot);
    EXPECT_EQ(subscription.next()->kind, Event::Kind::Disconnected);
    EXPECT_EQ(failureOf([&] { subscription.next(); }).kind, Error::Kind::BrokenAnswer);
    EXPECT_EQ(subscription.next()->kind, Event::Kind::Snapshot);
}

TEST(BrokenEvents, MayEndAtAnyByte) {
    const std::string first = frameOfEvent(snapshot(5, {{1, "a"}}));
    for (std::size_t length = 0; length < first.size(); ++length) {
        ScriptedServer server({idle,
                               [&](Peer& peer) {
                                   peer.receive();
                                   peer.send(first.substr(0, length));
                               },
                               sending({snapshot(6, {})})});
        Subscription subscription = Client(server.path(), kNoTimeout).subscribe();
        EXPECT_EQ(subscription.next()->kind, Event::Kind::Disconnected) << length;
        EXPECT_EQ(subscription.next()->revision, 6) << length;
    }
}

// Where others may write to the directory, they can put their own socket in place of the host's.
TEST(BrokenEvents, ComeFromNoOtherUser) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can stand for two users";
    }
    const tests::TemporaryDirectory directory;
    const std::string path = directory.path("host.sock");
    const int mine = tests::listenAt(path, 5);
    ClientOptions options;
    options.socketPath = path;
    options.hostUser = 1;
    Subscription subscription = Client(options).subscribe();
    tests::asOrdinaryUser(directory.path(""), [&] {
        std::filesystem::remove(path);
        const int other = tests::listenAt(path, 5);
        const Failure failure = failureOf([&] { subscription.next(std::chrono::seconds(5)); });
        EXPECT_EQ(failure.kind, Error::Kind::WrongHost);
        ::close(other);
    });
    ::close(mine);
}

}  // namespace
}  // namespace qv::client
