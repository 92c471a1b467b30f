// SPDX-License-Identifier: Apache-2.0

// Tests what subscribers of a host that is a process learn, above all across its restarts.
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "qvhost/server/DirectoryRequests.h"
#include "qvhost/server/Subscribed.h"
#include "support/LongestFile.h"

namespace qv::host {
namespace {

using testing::Contains;
using tests::next;
using tests::Services;
using tests::subscribe;
using tests::Subscribed;
using tests::subscription;

// Returns the event with which a new subscription begins.
wire::HostEvent firstEvent(const HostProcess& host, const std::string& input) {
    const RawClient client(host.socket());
    subscribe(client, input);
    return next(client);
}

class ServeSubscribers : public testing::Test {
  protected:
    // Starts the host, registers a service and subscribes. Remembers the last event.
    void SetUp() override {
        ASSERT_TRUE(host.start());
        registerServices(RawClient(host.socket()), {{1, "/a"}});
        last = firstEvent(host, subscription());
        EXPECT_TRUE(last.is_snapshot());
    }

    void restart(int signal) {
        host.signal(signal);
        host.wait();
        ASSERT_TRUE(host.start());
    }

    // Returns the first event of a client that comes back after the last event.
    wire::HostEvent comeBack() const {
        return firstEvent(host, subscription({}, last.epoch(), last.revision()));
    }

    HostProcess host;
    wire::HostEvent last;
};

TEST_F(ServeSubscribers, ClientGoesOnAfterARestartThatChangedNothing) {
    for (const int signal : {SIGTERM, SIGKILL, SIGKILL}) {
        restart(signal);
        const wire::HostEvent event = comeBack();
        EXPECT_FALSE(event.is_snapshot());
        EXPECT_EQ(event.revision(), last.revision());
        EXPECT_NE(event.epoch(), last.epoch());
        last = event;
    }
}

TEST_F(ServeSubscribers, ClientOfARestartedHostGetsWhatTheNewRunChanged) {
    restart(SIGKILL);
    registerServices(RawClient(host.socket()), {{2, "/b"}});
    const wire::HostEvent event = comeBack();
    EXPECT_FALSE(event.is_snapshot());
    EXPECT_EQ(tests::servicesOf(event.registered()), (Services{{2, "/b"}}));
}

TEST_F(ServeSubscribers, ClientThatMissedTheLastChangesBeforeARestartStartsOver) {
    registerServices(RawClient(host.socket()), {{2, "/b"}});
    restart(SIGKILL);
    const wire::HostEvent event = comeBack();
    EXPECT_TRUE(event.is_snapshot());
    EXPECT_EQ(tests::servicesOf(event.registered()), (Services{{1, "/a"}, {2, "/b"}}));
}

TEST_F(ServeSubscribers, ClientThatWasToldOfAChangeThatIsLostStartsOver) {
    const RawClient client(host.socket());
    subscribe(client, subscription());
    next(client);
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    // The new run cannot write to any file.
    host.setPreparation([] { static const tests::LongestFile kFull(0); });
    ASSERT_TRUE(host.start());
    const RawClient writer(host.socket());
    EXPECT_EQ(writer.ask(QV_COMMAND_REGISTER_SERVICES, 1, tests::encode({{2, "/lost"}}))->code,
              uint32_t{QV_HOST_ERROR_NOT_KEPT});
    last = firstEvent(host, subscription());
    EXPECT_THAT(tests::servicesOf(last.registered()), Contains(tests::Service(2, "/lost")));
    host.setPreparation(nullptr);
    restart(SIGKILL);
    // Otherwise the client would take this change for the one that it knows.
    registerServices(RawClient(host.socket()), {{3, "/c"}});
    const wire::HostEvent event = comeBack();
    EXPECT_TRUE(event.is_snapshot());
    EXPECT_EQ(tests::servicesOf(event.registered()), (Services{{1, "/a"}, {3, "/c"}}));
}

TEST_F(ServeSubscribers, StatusCountsThem) {
    const RawClient asker(host.socket());
    std::vector<RawClient> clients;
    for (uint64_t count = 1; count <= 3; ++count) {
        clients.emplace_back(host.socket());
        subscribe(clients.back(), subscription());
        next(clients.back());
        EXPECT_GE(statusOf(asker).subscribers(), count);
    }
}

TEST_F(ServeSubscribers, ClientsOfTheFirstEditionAreServedBeside) {
    const RawClient client(host.socket());
    subscribe(client, subscription());
    Subscribed state(client);
    state.receive();
    expectService(RawClient(host.socket()), 100);
    state.receiveUntil(last.revision() + 2);
    EXPECT_EQ(state.services(), (std::map<int32_t, std::string>{{1, "/a"}, {101, "b"}}));
}

TEST_F(ServeSubscribers, EachIsToldOfTheEnd) {
    const RawClient client(host.socket());
    subscribe(client, subscription());
    next(client);
    host.signal(SIGTERM);
    const std::optional<RawAnswer> answer = client.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_HOST_ERROR_STOPPING});
    EXPECT_EQ(host.wait(), 0);
}

}  // namespace
}  // namespace qv::host
