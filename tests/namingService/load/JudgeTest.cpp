// SPDX-License-Identifier: Apache-2.0

// Tests the judge of the load test with histories written by hand.

#include "Judge.h"

#include <gtest/gtest.h>

#include <string>

namespace qv::tests {
namespace {

using Threads = std::vector<std::vector<Change>>;

// Returns what contradicts an order without its times, or "good". Two keys have the value 1 at the
// start.
std::string judge(const Threads& changes, const std::vector<Reading>& readings) {
    const std::string problem = contradiction({1, 1}, changes, readings).value_or("good");
    return problem.substr(0, problem.find(','));
}

constexpr char kGood[] = "good";
constexpr char kLost[] = "a change is lost";
constexpr char kFuture[] = "a reading saw a change of the future";
constexpr char kLess[] = "a later reading saw less";
constexpr char kDisagree[] = "two readings each miss a change that the other saw";
constexpr char kNobody[] = "a value has changed that no change wrote";
constexpr char kWrong[] = "a value is not that of the last change";

const Change kOne{{10, 20}, {0}, 7};
const Change kLater{{30, 40}, {0}, 8};
const Change kBeside{{15, 25}, {0}, 9};
const Change kBoth{{10, 20}, {0, 1}, 7};
const Change kBothBeside{{15, 25}, {0, 1}, 9};
const Change kRemoval{{10, 20}, {0}, kAbsent};

TEST(Judge, AcceptsNoCommands) {
    EXPECT_EQ(judge({}, {}), kGood);
}

TEST(Judge, ReadingFindsTheInitialValuesThenTheChanges) {
    EXPECT_EQ(judge({{kOne, kLater}},
                    {{{1, 2}, {0}, {1, 1}}, {{21, 22}, {1}, {7, 1}}, {{41, 42}, {2}, {8, 1}}}),
              kGood);
}

TEST(Judge, ReadingBesideAChangeMaySeeItOrNot) {
    EXPECT_EQ(judge({{kOne}}, {{{12, 14}, {0}, {1, 1}}}), kGood);
    EXPECT_EQ(judge({{kOne}}, {{{12, 14}, {1}, {7, 1}}}), kGood);
    // Times that are equal overlap.
    EXPECT_EQ(judge({{kOne}}, {{{20, 21}, {0}, {1, 1}}}), kGood);
    EXPECT_EQ(judge({{kOne}}, {{{9, 10}, {1}, {7, 1}}}), kGood);
}

TEST(Judge, NoticesALostChange) {
    EXPECT_EQ(judge({{kOne}}, {{{21, 22}, {0}, {1, 1}}}), kLost);
    // The reading saw a change that began after the lost one had ended.
    EXPECT_EQ(judge({{kOne}, {kLater}}, {{{5, 50}, {0, 1}, {8, 1}}}), kLost);
    EXPECT_EQ(judge({{kOne}, {kBeside}}, {{{5, 50}, {0, 1}, {9, 1}}}), kGood);
}

TEST(Judge, NoticesAChangeOfTheFuture) {
    EXPECT_EQ(judge({{kOne}}, {{{1, 2}, {1}, {7, 1}}}), kFuture);
}

TEST(Judge, NoticesAStaleReading) {
    const Change slow{{10, 90}, {0}, 7};
    EXPECT_EQ(judge({{slow}}, {{{20, 30}, {1}, {7, 1}}, {{40, 50}, {0}, {1, 1}}}), kLess);
    EXPECT_EQ(judge({{slow}}, {{{20, 40}, {1}, {7, 1}}, {{30, 50}, {0}, {1, 1}}}), kGood);
    EXPECT_EQ(judge({{slow}}, {{{20, 30}, {1}, {7, 1}}, {{40, 50}, {1}, {7, 1}}}), kGood);
}

TEST(Judge, NoticesReadersThatDisagreeAboutTheOrder) {
    const Change first{{10, 90}, {0}, 7};
    const Change second{{10, 90}, {1}, 8};
    EXPECT_EQ(judge({{first}, {second}}, {{{20, 40}, {1, 0}, {7, 1}}, {{30, 50}, {0, 1}, {1, 8}}}),
              kDisagree);
    EXPECT_EQ(judge({{first}, {second}}, {{{20, 40}, {1, 0}, {7, 1}}, {{30, 50}, {1, 1}, {7, 8}}}),
              kGood);
}

TEST(Judge, OverlappingChangesHappenInEitherOrder) {
    EXPECT_EQ(judge({{kOne}, {kBeside}}, {{{30, 31}, {1, 1}, {7, 1}}}), kGood);
    EXPECT_EQ(judge({{kOne}, {kBeside}}, {{{30, 31}, {1, 1}, {9, 1}}}), kGood);
    EXPECT_EQ(judge({{kOne}, {kLater}}, {{{41, 42}, {1, 1}, {7, 1}}}), kWrong);
    // The reading in between fixes the order.
    EXPECT_EQ(judge({{kOne}, {kBeside}}, {{{18, 19}, {1, 0}, {7, 1}}, {{30, 31}, {1, 1}, {7, 1}}}),
              kWrong);
}

TEST(Judge, NoticesAValueOfNobody) {
    EXPECT_EQ(judge({{kOne}}, {{{21, 22}, {1}, {5, 1}}}), kWrong);
    EXPECT_EQ(judge({{kOne}}, {{{21, 22}, {1}, {7, 5}}}), kNobody);
    EXPECT_EQ(judge({{kOne}}, {{{1, 2}, {0}, {kAbsent, 1}}}), kNobody);
}

TEST(Judge, NoticesHalfOfAChange) {
    EXPECT_EQ(judge({{kBoth}}, {{{21, 22}, {1}, {7, 7}}}), kGood);
    EXPECT_EQ(judge({{kBoth}}, {{{21, 22}, {1}, {7, 1}}}), kWrong);
    EXPECT_EQ(judge({{kBoth}, {kBothBeside}}, {{{30, 31}, {1, 1}, {9, 9}}}), kGood);
    EXPECT_EQ(judge({{kBoth}, {kBothBeside}}, {{{30, 31}, {1, 1}, {7, 9}}}), kWrong);
}

TEST(Judge, RemovedValueDoesNotComeBack) {
    EXPECT_EQ(judge({{kRemoval}}, {{{21, 22}, {1}, {kAbsent, 1}}}), kGood);
    EXPECT_EQ(judge({{kRemoval}}, {{{21, 22}, {1}, {1, 1}}}), kWrong);
    EXPECT_EQ(judge({{kRemoval}, {kRemoval}}, {{{21, 22}, {1, 1}, {kAbsent, 1}}}), kGood);
}

}  // namespace
}  // namespace qv::tests
