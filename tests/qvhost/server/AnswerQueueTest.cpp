// SPDX-License-Identifier: Apache-2.0

#include "server/AnswerQueue.h"

#include <QvFrame.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "qvhost/RawClient.h"
#include "qvhost/server/Snapshots.h"

namespace qv::host {
namespace {

constexpr std::size_t kMost = 64;

// Sends everything through a socket that takes up to `room` bytes at once.
std::string sent(AnswerQueue& answers, std::size_t room = 1'000'000'000) {
    std::string all;
    while (answers.size() != 0) {
        std::array<std::string_view, kMost> pieces;
        const std::size_t count = answers.pieces(pieces.data(), kMost);
        std::string some;
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_FALSE(pieces[i].empty());
            some += pieces[i];
        }
        if (some.empty() || some.size() > answers.size()) {
            ADD_FAILURE() << some.size() << " bytes of " << answers.size();
            break;
        }
        some.resize(std::min(room, some.size()));
        answers.sent(some.size());
        all += some;
    }
    std::string_view piece;
    EXPECT_EQ(answers.pieces(&piece, 1), 0U);
    return all;
}

SnapshotPointer snapshotOf(int services) {
    tests::Model model;
    for (int id = 0; id < services; ++id) {
        model[id] = "/run/service" + std::to_string(id) + ".sock";
    }
    return tests::snapshotOf(model, 1);
}

TEST(AnswerQueue, BytesFollowTheServicesOfAListing) {
    for (const int services : {0, 1, 2000}) {
        for (const std::size_t room : {1U, 1000U, 1'000'000U}) {
            const SnapshotPointer snapshot = snapshotOf(services);
            const std::string listing = tests::listingOf(*snapshot);
            AnswerQueue answers;
            answers.append(7, snapshot, "end");
            answers.append(0, 8);
            EXPECT_TRUE(sent(answers, room) == frame(0, 7, listing + "end") + frame(0, 8));
        }
    }
}

TEST(AnswerQueue, AnswersGoOutInTheirOrder) {
    AnswerQueue answers;
    EXPECT_EQ(sent(answers), "");
    answers.append(0, 1);
    answers.append(21006, 2, "no such command");
    EXPECT_EQ(sent(answers), frame(0, 1) + frame(21006, 2, "no such command"));
    answers.append(0, 3, "x");
    EXPECT_EQ(sent(answers), frame(0, 3, "x"));
}

TEST(AnswerQueue, AnswersBetweenListingsKeepTheirPlaces) {
    const SnapshotPointer one = snapshotOf(300);
    const SnapshotPointer other = snapshotOf(1000);
    for (const std::size_t room : {1, 7, 12, 1000, 100'000, 10'000'000}) {
        AnswerQueue answers;
        answers.append(0, 1, "a");
        answers.append(2, one);
        answers.append(3, other);
        answers.append(0, 4, "b");
        answers.append(5, one);
        // A failure must not print the bytes.
        EXPECT_TRUE(sent(answers, room) == frame(0, 1, "a") + frame(0, 2, tests::listingOf(*one)) +
                                               frame(0, 3, tests::listingOf(*other)) +
                                               frame(0, 4, "b") +
                                               frame(0, 5, tests::listingOf(*one)))
            << room;
    }
}

// The system sends far fewer pieces at once.
TEST(AnswerQueue, ListingOf800BlocksArrivesWhole) {
    const SnapshotPointer snapshot = snapshotOf(100'000);
    ASSERT_GE(snapshot->blocks().size(), 700U);
    for (const std::size_t room : {4096, 1'000'000'000}) {
        AnswerQueue answers;
        answers.append(1, snapshot);
        EXPECT_TRUE(sent(answers, room) == frame(0, 1, tests::listingOf(*snapshot)));
    }
}

TEST(AnswerQueue, ListingIsSentWithoutACopy) {
    const SnapshotPointer snapshot = snapshotOf(300);
    AnswerQueue answers;
    answers.append(0, 1, "a");
    answers.append(2, snapshot);
    std::array<std::string_view, kMost> pieces;
    ASSERT_EQ(answers.pieces(pieces.data(), kMost), 1 + snapshot->blocks().size());
    EXPECT_EQ(pieces[1].data(), snapshot->blocks()[0]->bytes().data());
    EXPECT_EQ(answers.pieces(pieces.data(), 2), 2U);
}

TEST(AnswerQueue, SnapshotIsKeptUntilItsListingIsSent) {
    SnapshotPointer first = snapshotOf(300);
    SnapshotPointer second = snapshotOf(301);
    const std::weak_ptr<const Snapshot> firstSeen = first;
    const std::weak_ptr<const Snapshot> secondSeen = second;
    AnswerQueue answers;
    answers.append(1, std::move(first));
    answers.append(2, std::move(second));
    const std::size_t length = QV_FRAME_HEADER_SIZE + firstSeen.lock()->listingBytes();
    answers.sent(length - 1);
    EXPECT_FALSE(firstSeen.expired());
    answers.sent(1);
    EXPECT_TRUE(firstSeen.expired());
    EXPECT_FALSE(secondSeen.expired());
    answers.sent(answers.size());
    EXPECT_TRUE(secondSeen.expired());
}

TEST(AnswerQueue, ShortListingKeepsNoSnapshot) {
    for (const int services : {0, 20}) {
        SnapshotPointer snapshot = snapshotOf(services);
        const std::weak_ptr<const Snapshot> seen = snapshot;
        const std::string bytes = tests::listingOf(*snapshot);
        AnswerQueue answers;
        answers.append(4, std::move(snapshot));
        EXPECT_TRUE(seen.expired());
        EXPECT_EQ(sent(answers), frame(0, 4, bytes));
    }
}

TEST(AnswerQueue, LastAnswerCanBeRemoved) {
    const SnapshotPointer snapshot = snapshotOf(300);
    AnswerQueue answers;
    answers.append(0, 1, "a");
    answers.append(2, snapshot);
    const std::size_t size = answers.size();
    answers.append(3, snapshot);
    answers.removeLast();
    EXPECT_EQ(answers.size(), size);
    answers.append(0, 4, "b");
    answers.removeLast();
    answers.append(0, 5, "c");
    EXPECT_TRUE(sent(answers) ==
                frame(0, 1, "a") + frame(0, 2, tests::listingOf(*snapshot)) + frame(0, 5, "c"));
}

}  // namespace
}  // namespace qv::host
