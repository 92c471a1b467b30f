// SPDX-License-Identifier: Apache-2.0

#include "server/Questions.h"

#include <QvFrame.h>
#include <QvHost.pb.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "qvhost/server/Snapshots.h"
#include "support/LoadedPlugin.h"

namespace qv::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

template <typename Message>
std::string withIds(std::size_t count) {
    Message message;
    for (std::size_t id = 0; id < count; ++id) {
        message.add_ids(-static_cast<int32_t>(id));
    }
    return message.SerializeAsString();
}

TEST(Questions, FindNamesEachServiceOnce) {
    wire::HostFind message;
    for (const int32_t id : {7, -1, 7, 3}) {
        message.add_ids(id);
    }
    Identifiers ids;
    EXPECT_EQ(readFind(message.SerializeAsString(), ids).code, uint32_t{QV_OK});
    EXPECT_THAT(ids, ElementsAre(-1, 3, 7));
    EXPECT_EQ(readFind("", ids).code, uint32_t{QV_OK});
    EXPECT_THAT(ids, IsEmpty());
}

TEST(Questions, PackedIdentifiersAreRead) {
    Identifiers ids;
    EXPECT_EQ(readFind("\x0a\x02\x05\x06", ids).code, uint32_t{QV_OK});
    EXPECT_THAT(ids, ElementsAre(5, 6));
}

TEST(Questions, SubscriptionTellsTheLastEvent) {
    wire::HostSubscription message;
    message.add_ids(7);
    message.set_epoch(99);
    message.set_revision(3);
    SubscriptionWish wish;
    EXPECT_EQ(readSubscription(message.SerializeAsString(), wish).code, uint32_t{QV_OK});
    EXPECT_THAT(wish.ids, ElementsAre(7));
    ASSERT_TRUE(wish.last);
    EXPECT_EQ(wish.last->epoch, 99U);
    EXPECT_EQ(wish.last->revision, 3);
}

TEST(Questions, HalfAnEventIsNone) {
    wire::HostSubscription message;
    message.set_epoch(99);
    SubscriptionWish wish;
    EXPECT_EQ(readSubscription(message.SerializeAsString(), wish).code, uint32_t{QV_OK});
    EXPECT_FALSE(wish.last);
}

TEST(Questions, BytesThatDoNotParseAreRefused) {
    for (const std::string input : {"\xff", "\x08", "\x0a\x05\x01"}) {
        Identifiers ids;
        SubscriptionWish wish;
        EXPECT_EQ(readFind(input, ids).code, uint32_t{QV_ERROR_ARGUMENT});
        EXPECT_EQ(readSubscription(input, wish).code, uint32_t{QV_ERROR_ARGUMENT});
    }
}

TEST(Questions, MostIdentifiersAreTakenAndOneMoreIsRefused) {
    Identifiers ids;
    EXPECT_EQ(readFind(withIds<wire::HostFind>(kMostIdsOfQuestion), ids).code, uint32_t{QV_OK});
    EXPECT_EQ(ids.size(), kMostIdsOfQuestion);
    const Outcome find = readFind(withIds<wire::HostFind>(kMostIdsOfQuestion + 1), ids);
    EXPECT_EQ(find.code, uint32_t{QV_HOST_ERROR_REFUSED});
    EXPECT_THAT(find.bytes, HasSubstr("1001"));
    SubscriptionWish wish;
    EXPECT_EQ(readSubscription(withIds<wire::HostSubscription>(kMostIdsOfQuestion + 1), wish).code,
              uint32_t{QV_HOST_ERROR_REFUSED});
}

TEST(Questions, LongInputIsRefusedUnread) {
    Identifiers ids;
    EXPECT_EQ(readFind(std::string(kLongestQuestion + 1, '\xff'), ids).code,
              uint32_t{QV_HOST_ERROR_REFUSED});
}

TEST(Questions, EntriesAreThoseOfTheServicesThatExist) {
    const SnapshotPointer snapshot = tests::snapshotOf({{-5, "/a"}, {1, ""}, {900, "/c"}}, 1);
    EXPECT_EQ(entriesOf({-6, -5, 1, 2, 900, 901}, *snapshot),
              tests::encode({{-5, "/a"}, {1, ""}, {900, "/c"}}));
    EXPECT_EQ(entriesOf({7}, *snapshot), "");
    EXPECT_EQ(entriesOf({7}, Snapshot()), "");
}

}  // namespace
}  // namespace qv::host
