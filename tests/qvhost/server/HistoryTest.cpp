// SPDX-License-Identifier: Apache-2.0

#include "server/History.h"

#include <QvHost.pb.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qvhost/server/Snapshots.h"

namespace qv::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tests::snapshotOf;

constexpr uint64_t kEpoch = 0xfedcba9876543210;
constexpr uint64_t kLastEpoch = 5;

wire::HostEvent read(std::string_view bytes) {
    wire::HostEvent event;
    EXPECT_TRUE(event.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
    return event;
}

std::vector<int32_t> idsOf(const google::protobuf::RepeatedPtrField<wire::HostService>& services) {
    std::vector<int32_t> ids;
    for (const wire::HostService& service : services) {
        ids.push_back(service.id());
    }
    return ids;
}

// Returns an event whose bytes are about so many.
EventPointer eventOf(int64_t revision, std::size_t bytes = 10) {
    return Event::of({{1, std::string(bytes, 'a')}}, Snapshot(), kEpoch, revision);
}

// Returns the revisions that follow, or nothing if they are gone.
std::optional<std::vector<int64_t>> revisionsAfter(const History& history, int64_t revision,
                                                   std::size_t most = 100) {
    std::vector<EventPointer> events(most);
    const std::optional<std::size_t> count = history.after(revision, events.data(), most);
    if (!count) {
        return std::nullopt;
    }
    std::vector<int64_t> revisions;
    for (std::size_t i = 0; i < *count; ++i) {
        revisions.push_back(events[i]->revision());
    }
    return revisions;
}

TEST(Event, TellsWhatTheCommitDid) {
    const SnapshotPointer before = snapshotOf({{2, "/old"}, {3, "/gone"}}, 6);
    const std::string bytes("\xff\0'", 3);
    const EventPointer event =
        Event::of({{-1, bytes}, {2, "/new"}, {3, std::nullopt}}, *before, kEpoch, 7);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->revision(), 7);
    const wire::HostEvent message = read(event->bytes());
    ASSERT_THAT(idsOf(message.registered()), ElementsAre(-1));
    EXPECT_EQ(message.registered(0).address(), bytes);
    ASSERT_THAT(idsOf(message.changed()), ElementsAre(2));
    EXPECT_EQ(message.changed(0).address(), "/new");
    EXPECT_THAT(message.withdrawn(), ElementsAre(3));
    EXPECT_FALSE(message.is_snapshot());
    EXPECT_EQ(message.epoch(), kEpoch);
    EXPECT_EQ(message.revision(), 7);
}

TEST(Event, SomeServicesOfACommit) {
    const SnapshotPointer before = snapshotOf({{2, "/old"}, {3, "/gone"}}, 6);
    const EventPointer event =
        Event::of({{1, "/a"}, {2, "/new"}, {3, std::nullopt}, {4, "/b"}}, *before, kEpoch, 7);
    const wire::HostEvent some = read(event->bytesOf({3, 4, 5}));
    EXPECT_THAT(idsOf(some.registered()), ElementsAre(4));
    EXPECT_THAT(some.changed(), IsEmpty());
    EXPECT_THAT(some.withdrawn(), ElementsAre(3));
    EXPECT_EQ(some.epoch(), kEpoch);
    EXPECT_EQ(some.revision(), 7);
    EXPECT_THAT(idsOf(read(event->bytesOf({2})).changed()), ElementsAre(2));
    EXPECT_EQ(event->bytesOf({0, 5}), "");
    EXPECT_EQ(event->bytesOf({1, 2, 3, 4}), event->bytes());
}

TEST(Event, LongCommitHasNone) {
    EXPECT_TRUE(eventOf(1, kLongestEvent - 100));
    EXPECT_FALSE(eventOf(1, kLongestEvent));
}

TEST(Event, EndOfASnapshot) {
    const wire::HostEvent end = read(Event::end(kEpoch, 9, true));
    EXPECT_TRUE(end.is_snapshot());
    EXPECT_EQ(end.epoch(), kEpoch);
    EXPECT_EQ(end.revision(), 9);
}

TEST(History, EventsAreTakenInOrder) {
    History history(kEpoch);
    history.begin(kLastEpoch, 10);
    EXPECT_EQ(revisionsAfter(history, 10), std::vector<int64_t>());
    for (int64_t revision = 11; revision <= 14; ++revision) {
        history.append(revision, eventOf(revision));
    }
    EXPECT_EQ(revisionsAfter(history, 10), (std::vector<int64_t>{11, 12, 13, 14}));
    EXPECT_EQ(revisionsAfter(history, 10, 2), (std::vector<int64_t>{11, 12}));
    EXPECT_EQ(revisionsAfter(history, 13), (std::vector<int64_t>{14}));
    EXPECT_EQ(revisionsAfter(history, 14), std::vector<int64_t>());
}

TEST(History, RevisionsThatItDoesNotHaveAreGone) {
    History history(kEpoch);
    history.begin(kLastEpoch, 10);
    history.append(11, eventOf(11));
    for (const int64_t revision :
         {int64_t{9}, int64_t{12}, int64_t{0}, int64_t{-1}, std::numeric_limits<int64_t>::min(),
          std::numeric_limits<int64_t>::max()}) {
        EXPECT_EQ(revisionsAfter(history, revision), std::nullopt) << revision;
    }
}

TEST(History, ItKeepsSoManyEvents) {
    History history(kEpoch, {3, 1'000'000});
    history.begin(kLastEpoch, 0);
    for (int64_t revision = 1; revision <= 10; ++revision) {
        history.append(revision, eventOf(revision));
    }
    EXPECT_EQ(revisionsAfter(history, 6), std::nullopt);
    EXPECT_EQ(revisionsAfter(history, 7), (std::vector<int64_t>{8, 9, 10}));
}

TEST(History, ItKeepsSoManyBytes) {
    const std::size_t memory = eventOf(1, 1000)->memory();
    History history(kEpoch, {100, 3 * memory});
    history.begin(kLastEpoch, 0);
    std::weak_ptr<const Event> dropped;
    for (int64_t revision = 1; revision <= 10; ++revision) {
        EventPointer event = eventOf(revision, 1000);
        dropped = revision == 7 ? event : dropped.lock();
        history.append(revision, std::move(event));
    }
    EXPECT_TRUE(dropped.expired());
    EXPECT_EQ(revisionsAfter(history, 6), std::nullopt);
    EXPECT_EQ(revisionsAfter(history, 7), (std::vector<int64_t>{8, 9, 10}));
    history.append(11, eventOf(11, 4000));
    EXPECT_EQ(revisionsAfter(history, 10), std::nullopt);
    EXPECT_EQ(revisionsAfter(history, 11), std::vector<int64_t>());
    history.append(12, eventOf(12));
    EXPECT_EQ(revisionsAfter(history, 11), (std::vector<int64_t>{12}));
}

TEST(History, WithoutAnEventAllStartOver) {
    History history(kEpoch, {3, 1'000'000});
    history.begin(kLastEpoch, 0);
    for (int64_t revision = 1; revision <= 20; ++revision) {
        history.append(revision, revision % 5 == 0 ? nullptr : eventOf(revision));
        if (revision % 5 == 0) {
            EXPECT_EQ(revisionsAfter(history, revision - 1), std::nullopt);
        }
        EXPECT_EQ(revisionsAfter(history, revision), std::vector<int64_t>());
    }
    history.append(21, eventOf(21));
    EXPECT_EQ(revisionsAfter(history, 20), (std::vector<int64_t>{21}));
    EXPECT_EQ(revisionsAfter(history, 19), std::nullopt);
}

TEST(History, ClientOfThisRunGoesOn) {
    History history(kEpoch);
    history.begin(kLastEpoch, 10);
    EXPECT_EQ(history.positionOf({kEpoch, 12}), 12);
}

TEST(History, ClientOfTheLastRunGoesOnWhereItsRecordEnded) {
    History history(kEpoch);
    history.begin(kLastEpoch, 10);
    history.append(11, eventOf(11));
    EXPECT_EQ(history.positionOf({kLastEpoch, 10}), 10);
    // The last run may have told of this revision without keeping it.
    EXPECT_EQ(history.positionOf({kLastEpoch, 11}), std::nullopt);
    EXPECT_EQ(history.positionOf({kLastEpoch, 9}), std::nullopt);
}

TEST(History, ClientOfAnotherRunStartsOver) {
    History history(kEpoch);
    history.begin(kLastEpoch, 10);
    EXPECT_EQ(history.positionOf({6, 10}), std::nullopt);
}

TEST(History, NewRecordIsThatOfNoRun) {
    History history(kEpoch);
    history.begin(0, 0);
    EXPECT_EQ(history.positionOf({0, 0}), std::nullopt);
}

TEST(History, EpochsDiffer) {
    EXPECT_NE(History::newEpoch(), History::newEpoch());
}

}  // namespace
}  // namespace qv::host
