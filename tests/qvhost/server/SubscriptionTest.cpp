// SPDX-License-Identifier: Apache-2.0

#include "server/Subscription.h"

#include <QvFrame.h>
#include <QvHost.pb.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qvhost/RawClient.h"
#include "qvhost/server/DirectoryRequests.h"
#include "qvhost/server/ServedDirectory.h"
#include "qvhost/server/Subscribed.h"
#include "qvhost/server/Users.h"
#include "support/LoadedPlugin.h"

namespace qv::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tests::encode;
using tests::next;
using tests::ServedDirectory;
using tests::Services;
using tests::subscribe;
using tests::Subscribed;
using tests::subscription;

class SubscriptionTest : public testing::Test {
  protected:
    // Waits until the thread has done everything that it can do.
    void settle() {
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(served.connect().works());
        }
    }

    // Registers services whose listing is longer than a socket holds.
    void fill(const RawClient& writer) { registerServices(writer, manyServices()); }

    ServedDirectory served;
};

TEST_F(SubscriptionTest, ItBeginsWithASnapshotAndThenTellsEachCommitOnce) {
    served.start();
    const RawClient writer = served.connect();
    registerServices(writer, {{1, "/a"}, {2, "/b"}});
    const RawClient client = served.connect();
    subscribe(client, subscription());
    const wire::HostEvent first = next(client);
    EXPECT_TRUE(first.is_snapshot());
    EXPECT_EQ(tests::servicesOf(first.registered()), (Services{{1, "/a"}, {2, "/b"}}));
    EXPECT_EQ(first.revision(), 1);
    EXPECT_EQ(first.epoch(), served.recorder().history().epoch());
    registerServices(writer, {{2, "/c"}, {3, "/d"}});
    withdraw(writer, 1);
    const wire::HostEvent second = next(client);
    EXPECT_FALSE(second.is_snapshot());
    EXPECT_EQ(tests::servicesOf(second.registered()), (Services{{3, "/d"}}));
    EXPECT_EQ(tests::servicesOf(second.changed()), (Services{{2, "/c"}}));
    EXPECT_EQ(second.revision(), 2);
    EXPECT_EQ(second.epoch(), first.epoch());
    const wire::HostEvent third = next(client);
    EXPECT_THAT(third.withdrawn(), ElementsAre(1));
    EXPECT_EQ(third.revision(), 3);
}

TEST_F(SubscriptionTest, EmptyDirectoryIsASnapshotToo) {
    served.start();
    const RawClient client = served.connect();
    subscribe(client, subscription());
    const wire::HostEvent event = next(client);
    EXPECT_TRUE(event.is_snapshot());
    EXPECT_EQ(event.registered_size(), 0);
    EXPECT_EQ(event.revision(), 0);
}

TEST_F(SubscriptionTest, EventsHaveOnlyTheServicesThatTheClientWants) {
    served.start();
    const RawClient writer = served.connect();
    registerServices(writer, {{1, "/a"}, {2, "/b"}});
    const RawClient client = served.connect();
    subscribe(client, subscription({2, 3}));
    EXPECT_EQ(tests::servicesOf(next(client).registered()), (Services{{2, "/b"}}));
    registerServices(writer, {{1, "/c"}});
    registerServices(writer, {{1, "/d"}, {3, "/e"}});
    withdraw(writer, 1);
    withdraw(writer, 2);
    const wire::HostEvent one = next(client);
    EXPECT_EQ(tests::servicesOf(one.registered()), (Services{{3, "/e"}}));
    EXPECT_THAT(one.changed(), IsEmpty());
    EXPECT_EQ(one.revision(), 3);
    const wire::HostEvent other = next(client);
    EXPECT_THAT(other.withdrawn(), ElementsAre(2));
    EXPECT_EQ(other.revision(), 5);
}

TEST_F(SubscriptionTest, ClientThatComesBackGetsWhatItMissed) {
    served.start();
    const RawClient writer = served.connect();
    registerServices(writer, {{1, "/a"}});
    registerServices(writer, {{1, "/b"}});
    registerServices(writer, {{2, "/c"}});
    const uint64_t epoch = served.recorder().history().epoch();
    const RawClient client = served.connect();
    subscribe(client, subscription({}, epoch, 1));
    EXPECT_EQ(tests::servicesOf(next(client).changed()), (Services{{1, "/b"}}));
    EXPECT_EQ(next(client).revision(), 3);
    registerServices(writer, {{2, "/d"}});
    EXPECT_EQ(next(client).revision(), 4);
}

TEST_F(SubscriptionTest, ClientThatMissedNothingIsToldSoAtOnce) {
    served.start();
    const RawClient writer = served.connect();
    registerServices(writer, {{1, "/a"}});
    const uint64_t epoch = served.recorder().history().epoch();
    registerServices(writer, {{2, "/b"}});
    for (const std::vector<int32_t>& ids : {std::vector<int32_t>{}, std::vector<int32_t>{1}}) {
        const RawClient client = served.connect();
        subscribe(client, subscription(ids, epoch, ids.empty() ? 2 : 1));
        const wire::HostEvent event = next(client);
        EXPECT_FALSE(event.is_snapshot());
        EXPECT_EQ(event.registered_size() + event.changed_size() + event.withdrawn_size(), 0);
        EXPECT_EQ(event.revision(), 2);
        EXPECT_EQ(event.epoch(), epoch);
    }
}

TEST_F(SubscriptionTest, ClientWithAnUnknownRevisionStartsOver) {
    served.start();
    const RawClient writer = served.connect();
    registerServices(writer, {{1, "/a"}});
    const uint64_t epoch = served.recorder().history().epoch();
    const std::vector<std::pair<uint64_t, int64_t>> unknown = {
        {epoch + 1, 1}, {epoch, 2}, {epoch, -1}, {0, 0}, {0, 1}};
    for (const auto& [otherEpoch, revision] : unknown) {
        const RawClient client = served.connect();
        subscribe(client, subscription({}, otherEpoch, revision));
        const wire::HostEvent event = next(client);
        EXPECT_TRUE(event.is_snapshot());
        EXPECT_EQ(event.revision(), 1);
    }
}

TEST_F(SubscriptionTest, RequestsBeforeItAreAnsweredFirst) {
    served.start();
    const RawClient client = served.connect();
    ASSERT_TRUE(client.send(frame(QV_HOST_COMMAND_PING, 1) +
                            frame(QV_COMMAND_REGISTER_SERVICES, 2, encode({{1, "/a"}})) +
                            frame(QV_HOST_COMMAND_SYNC, 3) +
                            frame(QV_HOST_COMMAND_SUBSCRIBE, tests::kNumber, subscription())));
    for (const uint32_t number : {1U, 2U, 3U}) {
        EXPECT_EQ(client.receive()->number, number);
    }
    EXPECT_EQ(tests::servicesOf(next(client).registered()), (Services{{1, "/a"}}));
}

TEST_F(SubscriptionTest, RequestThatIsRefusedLeavesTheConnectionAlone) {
    served.start();
    const RawClient client = served.connect();
    EXPECT_EQ(client.ask(QV_HOST_COMMAND_SUBSCRIBE, 1, "\xff")->code, uint32_t{QV_ERROR_ARGUMENT});
    EXPECT_TRUE(client.works());
    const std::string tooMany = subscription(std::vector<int32_t>(1001, 7));
    const std::optional<RawAnswer> answer = client.ask(QV_HOST_COMMAND_SUBSCRIBE, 2, tooMany);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_HOST_ERROR_REFUSED});
    EXPECT_EQ(answer->number, 2U);
    EXPECT_TRUE(client.works());
    EXPECT_EQ(served.refusals(QV_HOST_ERROR_REFUSED), 1U);
}

TEST_F(SubscriptionTest, FurtherRequestEndsIt) {
    served.start();
    const RawClient client = served.connect();
    subscribe(client, subscription());
    next(client);
    ASSERT_TRUE(client.send("x"));
    const std::optional<RawAnswer> answer = client.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_HOST_ERROR_SUBSCRIBED});
    EXPECT_EQ(answer->number, tests::kNumber);
    EXPECT_FALSE(client.receive());
    const RawClient hasty = served.connect();
    ASSERT_TRUE(
        hasty.send(frame(QV_HOST_COMMAND_SUBSCRIBE, 1, "") + frame(QV_HOST_COMMAND_PING, 2)));
    EXPECT_EQ(hasty.receive()->code, uint32_t{QV_HOST_ERROR_SUBSCRIBED});
    EXPECT_FALSE(hasty.receive());
    EXPECT_EQ(served.refusals(QV_HOST_ERROR_SUBSCRIBED), 2U);
}

TEST_F(SubscriptionTest, ClientThatLeavesIsForgotten) {
    served.start();
    const RawClient writer = served.connect();
    {
        const RawClient client = served.connect();
        subscribe(client, subscription());
        next(client);
        EXPECT_EQ(served.subscribers(), 1U);
    }
    registerServices(writer, {{1, "/a"}});
    settle();
    EXPECT_EQ(served.subscribers(), 0U);
}

TEST_F(SubscriptionTest, ItIsNeverIdle) {
    served.limits.idleTimeout = std::chrono::hours(1);
    served.limits.frameTimeout = std::chrono::hours(1);
    served.start();
    const RawClient client = served.connect();
    subscribe(client, subscription());
    next(client);
    settle();
    served.passTime(std::chrono::hours(5));
    registerServices(served.connect(), {{1, "/a"}});
    EXPECT_EQ(next(client).revision(), 1);
}

TEST_F(SubscriptionTest, EndOfTheHostIsTold) {
    served.start();
    const RawClient client = served.connect();
    subscribe(client, subscription());
    next(client);
    std::future<void> gone = served.stop();
    const std::optional<RawAnswer> answer = client.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_HOST_ERROR_STOPPING});
    EXPECT_FALSE(client.receive());
    gone.wait();
}

TEST_F(SubscriptionTest, ClientThatDoesNotReadStartsOverAndCostsItsShare) {
    served.start();
    const RawClient writer = served.connect();
    const RawClient deaf = served.connect();
    subscribe(deaf, subscription());
    Subscribed state(deaf);
    state.receiveUntil(0);
    const std::string address(3000, 'x');
    constexpr int kChanges = 2000;
    for (int i = 0; i < kChanges; ++i) {
        registerServices(writer, {{i % 10, address + std::to_string(i)}});
    }
    settle();
    EXPECT_EQ(served.budget().held(), 0U);
    state.receiveUntil(kChanges);
    EXPECT_GE(state.snapshots(), 2);
    EXPECT_EQ(state.services(), served.directory());
}

TEST_F(SubscriptionTest, SnapshotThatIsNotReadIsHeldInTheBudget) {
    served.start();
    const RawClient writer = served.connect();
    fill(writer);
    const RawClient deaf = served.connect();
    subscribe(deaf, subscription());
    settle();
    EXPECT_GT(served.budget().held(), 8'000'000U);
    Subscribed state(deaf);
    state.receiveUntil(1);
    settle();
    EXPECT_EQ(served.budget().held(), 0U);
    EXPECT_EQ(state.services().size(), manyServices().size());
}

TEST_F(SubscriptionTest, SnapshotWaitsForRoomAndIsThenTheNewestOne) {
    constexpr std::size_t kShare = std::size_t{1024} * 1024;
    for (const std::vector<int32_t>& ids : {std::vector<int32_t>{}, std::vector<int32_t>{5}}) {
        ServedDirectory small;
        small.limits.maxMemory = 4 * kShare;
        small.start();
        const RawClient writer = small.connect();
        Services services;
        for (int32_t id = 0; id < 100; ++id) {
            services.emplace_back(id, std::string(4000, 'a'));
        }
        registerServices(writer, services);
        Budget::Account holder(small.budget(), kOther);
        ASSERT_TRUE(holder.hold(kShare));
        const RawClient client = small.connect(kOther);
        std::vector<int32_t> wanted = ids;
        for (int32_t id = 0; !ids.empty() && id < 100; ++id) {
            wanted.push_back(id);
        }
        subscribe(client, subscription(wanted));
        EXPECT_TRUE(small.connect().works());
        EXPECT_TRUE(small.connect().works());
        registerServices(writer, {{5, "late"}});
        char byte = 0;
        EXPECT_EQ(::recv(client.descriptor(), &byte, 1, MSG_DONTWAIT), -1);
        ASSERT_TRUE(holder.hold(0));
        const wire::HostEvent event = next(client);
        EXPECT_TRUE(event.is_snapshot());
        EXPECT_EQ(event.revision(), 2);
        EXPECT_EQ(event.registered(5).address(), "late");
        registerServices(writer, {{6, "later"}});
        EXPECT_EQ(next(client).revision(), 3);
        EXPECT_EQ(small.budget().held(), 0U);
    }
}

TEST_F(SubscriptionTest, ClientThatLeavesWhileItsSnapshotWaitsIsForgotten) {
    served.limits.maxMemory = std::size_t{4} * 1024 * 1024;
    served.start();
    registerServices(served.connect(), {{1, std::string(4000, 'a')}});
    Services services;
    for (int32_t id = 0; id < 100; ++id) {
        services.emplace_back(id, std::string(4000, 'a'));
    }
    registerServices(served.connect(), services);
    Budget::Account holder(served.budget(), kOther);
    ASSERT_TRUE(holder.hold(std::size_t{1024} * 1024));
    {
        const RawClient client = served.connect(kOther);
        subscribe(client, subscription());
        settle();
    }
    settle();
    ASSERT_TRUE(holder.hold(0));
    settle();
    EXPECT_EQ(served.subscribers(), 0U);
    EXPECT_EQ(served.budget().held(), 0U);
}

TEST_F(SubscriptionTest, ClientThatDoesNotReadForTooLongIsDisconnected) {
    served.limits.frameTimeout = std::chrono::hours(1);
    served.start();
    fill(served.connect());
    const RawClient deaf = served.connect();
    subscribe(deaf, subscription());
    settle();
    served.passTime(std::chrono::hours(2));
    settle();
    EXPECT_EQ(served.subscribers(), 0U);
    EXPECT_EQ(served.budget().held(), 0U);
}

TEST_F(SubscriptionTest, EndOfTheHostIsToldBehindASnapshotThatIsNotRead) {
    served.start();
    fill(served.connect());
    const RawClient deaf = served.connect();
    subscribe(deaf, subscription());
    settle();
    std::future<void> gone = served.stop();
    EXPECT_TRUE(next(deaf).is_snapshot());
    EXPECT_EQ(deaf.receive()->code, uint32_t{QV_HOST_ERROR_STOPPING});
    gone.wait();
}

TEST_F(SubscriptionTest, LongCommitIsASnapshot) {
    served.start();
    const RawClient client = served.connect();
    subscribe(client, subscription());
    next(client);
    Services services;
    for (int32_t id = 0; id < 5000; ++id) {
        services.emplace_back(id, "/run/service" + std::to_string(id));
    }
    registerServices(served.connect(), services);
    const wire::HostEvent event = next(client);
    EXPECT_TRUE(event.is_snapshot());
    EXPECT_TRUE(tests::servicesOf(event.registered()) == services);
}

TEST_F(SubscriptionTest, ManySubscribersSeeEveryRevisionOnceOrStartOver) {
    served.start();
    constexpr int kClients = 200;
    constexpr int kChanges = 500;
    std::vector<RawClient> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.push_back(served.connect());
        subscribe(clients.back(), subscription());
    }
    std::thread changes([this] {
        const RawClient writer = served.connect();
        for (int i = 0; i < kChanges; ++i) {
            if (i % 7 == 6) {
                withdraw(writer, (i - 1) % 20);
            } else {
                registerServices(writer, {{i % 20, "/run/" + std::to_string(i)}});
            }
        }
    });
    changes.join();
    const int64_t last = served.recorder().state()->snapshot->revision();
    for (const RawClient& client : clients) {
        Subscribed state(client);
        state.receiveUntil(last);
        EXPECT_EQ(state.services(), served.directory());
    }
}

}  // namespace
}  // namespace qv::host
