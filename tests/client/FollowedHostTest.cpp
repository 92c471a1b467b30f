// SPDX-License-Identifier: Apache-2.0

// Tests finding, waiting and following with a running host, in C++ and in C.
#include <QvClient.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/ProgramRun.h"

namespace qv::client {
namespace {

using host::HostProcess;
using host::ProgramOutcome;
using host::ProgramRun;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using Kind = Event::Kind;

class FollowedHost : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(host_.start()) << host_.errors(); }

    void killAndStart() {
        host_.signal(SIGKILL);
        host_.wait();
        ASSERT_TRUE(host_.start()) << host_.errors();
    }

    HostProcess host_;
};

Event nextOf(Subscription& subscription) {
    std::optional<Event> event = subscription.next();
    return event ? std::move(*event) : Event{};
}

TEST_F(FollowedHost, FindsServices) {
    Client client(host_.socket());
    EXPECT_EQ(client.find(7), std::nullopt);
    client.registerServices({{7, "a"}, {-1, "b"}});
    EXPECT_EQ(client.find(7), "a");
    const std::vector<Service> found = client.find({8, 7, -1});
    ASSERT_THAT(found, SizeIs(2));
    EXPECT_EQ(found[0].address, "b");
}

TEST_F(FollowedHost, SaysWhatItCanDo) {
    const HostAbilities abilities = Client(host_.socket()).abilities();
    EXPECT_EQ(abilities.edition, 2U);
    EXPECT_NE(abilities.version, "");
    EXPECT_THAT(abilities.commands, testing::IsSupersetOf({3U, 4U, 5U}));
    EXPECT_GT(abilities.mostServices, 0U);
    EXPECT_EQ(abilities.longestAddress, 4096U);
}

TEST_F(FollowedHost, TellsOfEachChange) {
    Client client(host_.socket());
    client.registerServices({{1, "a"}, {9, "z"}});
    Subscription mine = client.subscribe({1, 2});
    Subscription all = client.subscribe();
    Event event = nextOf(mine);
    EXPECT_EQ(event.kind, Kind::Snapshot);
    EXPECT_THAT(event.registered, SizeIs(1));
    EXPECT_THAT(nextOf(all).registered, SizeIs(2));

    client.registerServices({{9, "y"}});
    client.registerServices({{1, "b"}, {2, "c"}});
    client.unregisterServices({1, 9});
    EXPECT_EQ(nextOf(all).changed.at(0).address, "y");
    event = nextOf(mine);
    EXPECT_EQ(event.kind, Kind::Change);
    EXPECT_EQ(event.registered.at(0).id, 2);
    EXPECT_EQ(event.changed.at(0).address, "b");
    EXPECT_EQ(nextOf(all).revision, event.revision);
    EXPECT_THAT(nextOf(mine).withdrawn, ElementsAre(1));
    EXPECT_THAT(nextOf(all).withdrawn, ElementsAre(1, 9));
}

TEST_F(FollowedHost, IsFollowedThroughAKill) {
    Client client(host_.socket());
    client.registerServices({{1, "a"}});
    Subscription subscription = client.subscribe();
    const Event before = nextOf(subscription);
    EXPECT_EQ(before.kind, Kind::Snapshot);
    killAndStart();
    EXPECT_EQ(nextOf(subscription).kind, Kind::Disconnected);
    const Event back = nextOf(subscription);
    EXPECT_EQ(back.revision, before.revision);
    client.registerServices({{1, "b"}});
    const Event after = nextOf(subscription);
    EXPECT_EQ(after.changed.at(0).address, "b");
    EXPECT_GT(after.revision, before.revision);
}

TEST_F(FollowedHost, IsAwaitedThroughAKill) {
    Client first(host_.socket());
    std::future<std::string> address =
        std::async(std::launch::async, [&] { return first.waitFor(7, kNoTimeout); });
    killAndStart();
    Client(host_.socket()).registerServices({{7, "a"}});
    EXPECT_EQ(address.get(), "a");
}

TEST_F(FollowedHost, ServesTheInterfaceInC) {
    ProgramRun program;
    program.setProgram(QV_C_INTERFACE);
    const ProgramOutcome outcome = program.run({host_.socket()});
    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
}

TEST_F(FollowedHost, ServesTheExampleInC) {
    ProgramRun component;
    component.setProgram(QV_EXAMPLE_COMPONENT);
    component.start({"8", "/run/component.sock", "7", host_.socket()});
    Client client(host_.socket());
    EXPECT_EQ(client.waitFor(8), "/run/component.sock");
    client.registerServices({{7, "a"}});
    EXPECT_THAT(component.readUntil("a\n"), HasSubstr("using 7 at a\n"));
    client.registerServices({{7, "b"}});
    EXPECT_THAT(component.readUntil("b\n"), HasSubstr("using 7 at b\n"));
    client.unregisterServices({7});
    EXPECT_THAT(component.readUntil("gone\n"), HasSubstr("7 is gone\n"));
    EXPECT_EQ(component.finish().status, 0);
    EXPECT_EQ(client.find(8), std::nullopt);
}

}  // namespace
}  // namespace qv::client
