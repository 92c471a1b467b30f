// Tests the judge of the load test with histories written by hand. Also compares the judge with a
// search through every order, for small histories made at random.

#include "Linearizability.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>

namespace qv::tests {
namespace {

constexpr Value kInitial = 1;

Call write(std::int64_t invoked, std::int64_t responded, const Write& values) {
    return {invoked, responded, values};
}

Call write(std::int64_t invoked, std::int64_t responded, Value value) {
    return write(invoked, responded, Write{{0, value}});
}

Call remove(std::int64_t invoked, std::int64_t responded) {
    return write(invoked, responded, kAbsent);
}

Call read(std::int64_t invoked, std::int64_t responded, const Read& values) {
    return {invoked, responded, values};
}

Call read(std::int64_t invoked, std::int64_t responded, Value value) {
    return read(invoked, responded, Read{value});
}

// Judges the calls. Every key starts with kInitial.
std::optional<std::size_t> judge(const std::vector<Call>& calls, std::size_t keys = 1) {
    return unexplainedCall(Values(keys, kInitial), calls);
}

TEST(OneKey, NoCallsAreLinearizable) {
    EXPECT_EQ(judge({}), std::nullopt);
}

TEST(OneKey, ReadFindsTheInitialValueThenWhatWasWritten) {
    EXPECT_EQ(judge({read(1, 2, kInitial), write(3, 4, 7), read(5, 6, 7)}), std::nullopt);
}

TEST(OneKey, LostWriteIsNoticed) {
    EXPECT_EQ(judge({write(1, 2, 7), read(3, 4, kInitial)}), 1U);
    EXPECT_EQ(judge({write(1, 2, 7), write(3, 4, 8), read(5, 6, 7)}), 2U);
}

TEST(OneKey, ReadBesideAWriteMayFindEither) {
    EXPECT_EQ(judge({write(1, 4, 7), read(2, 3, kInitial)}), std::nullopt);
    EXPECT_EQ(judge({write(1, 4, 7), read(2, 3, 7)}), std::nullopt);
}

TEST(OneKey, EqualTimesOverlap) {
    EXPECT_EQ(judge({write(1, 2, 7), read(2, 3, kInitial)}), std::nullopt);
}

TEST(OneKey, StaleReadIsNoticed) {
    // In the first history the read of the new value ends before the other read begins.
    EXPECT_EQ(judge({write(1, 9, 7), read(2, 3, 7), read(4, 5, kInitial)}), 2U);
    EXPECT_EQ(judge({write(1, 9, 7), read(2, 4, 7), read(3, 5, kInitial)}), std::nullopt);
}

TEST(OneKey, ReadFromTheFutureIsNoticed) {
    EXPECT_EQ(judge({read(1, 2, 7), write(3, 4, 7)}), 0U);
}

TEST(OneKey, ReadOfWhatNobodyWroteIsNoticed) {
    EXPECT_EQ(judge({write(1, 4, 7), read(2, 3, 8)}), 1U);
}

TEST(OneKey, OverlappingWritesHappenInEitherOrder) {
    EXPECT_EQ(judge({write(1, 3, 7), write(2, 4, 8), read(5, 6, 7)}), std::nullopt);
    EXPECT_EQ(judge({write(1, 3, 7), write(2, 4, 8), read(5, 6, 8)}), std::nullopt);
}

TEST(OneKey, ReadsThatGoBackAndForthAreNoticed) {
    EXPECT_EQ(judge({write(1, 20, 7), write(2, 20, 8), read(3, 4, 7), read(5, 6, 8)}),
              std::nullopt);
    EXPECT_EQ(
        judge({write(1, 20, 7), write(2, 20, 8), read(3, 4, 7), read(5, 6, 8), read(7, 8, 7)}), 4U);
}

TEST(OneKey, ReadersMustAgreeOnTheOrderOfWrites) {
    EXPECT_EQ(
        judge({write(1, 20, 7), write(2, 20, 8), read(3, 5, 7), read(4, 6, 8), read(7, 8, 7)}),
        std::nullopt);
    EXPECT_EQ(judge({write(1, 20, 7), write(2, 20, 8), read(3, 5, 7), read(4, 6, 8), read(7, 9, 7),
                     read(10, 11, 8)}),
              5U);
}

TEST(OneKey, RemovedValueDoesNotComeBack) {
    EXPECT_EQ(judge({remove(1, 2), read(3, 4, kAbsent)}), std::nullopt);
    EXPECT_EQ(judge({remove(1, 2), read(3, 4, kInitial)}), 1U);
    EXPECT_EQ(judge({remove(1, 9), read(2, 3, kAbsent), read(4, 5, kInitial)}), 2U);
}

TEST(OneKey, AbsentValueWithoutARemovalIsNoticed) {
    EXPECT_EQ(judge({read(1, 2, kAbsent)}), 0U);
    EXPECT_EQ(judge({remove(1, 2), write(3, 4, 7), read(5, 6, kAbsent)}), 2U);
}

TEST(OneKey, OverlappingRemovalsEachCountOnce) {
    // The reads find the key absent, present, absent and present. That takes both removals.
    const std::vector<Call> changes{write(1, 30, 7), remove(1, 30), write(1, 30, 8), remove(1, 30)};
    std::vector<Call> calls = changes;
    for (const Value value : {kAbsent, Value{7}, kAbsent, Value{8}}) {
        const auto time = static_cast<std::int64_t>(2 * calls.size());
        calls.push_back(read(time, time + 1, value));
    }
    EXPECT_EQ(judge(calls), std::nullopt);
    calls.push_back(read(20, 21, kAbsent));
    EXPECT_EQ(judge(calls), 8U);
}

TEST(OneKey, ValueThatIsWrittenAgainMayBeReadAgain) {
    EXPECT_EQ(judge({write(1, 2, 7), write(3, 4, 8), write(5, 6, 7), read(7, 8, 7)}), std::nullopt);
}

TEST(SeveralKeys, WriteOfTwoIsNeverSeenHalf) {
    const Call both = write(1, 9, {{0, 7}, {1, 8}});
    EXPECT_EQ(judge({both, read(2, 3, {kInitial, kInitial}), read(4, 5, {7, 8})}, 2), std::nullopt);
    EXPECT_EQ(judge({both, read(2, 3, {7, kInitial})}, 2), 1U);
    EXPECT_EQ(judge({both, read(2, 3, {kInitial, 8})}, 2), 1U);
}

TEST(SeveralKeys, LastOfTwoValuesForOneKeyCounts) {
    const Call twice = write(1, 9, {{0, 7}, {0, 8}});
    EXPECT_EQ(judge({twice, read(2, 3, 8)}), std::nullopt);
    EXPECT_EQ(judge({twice, read(2, 3, 7)}), 1U);
}

TEST(SeveralKeys, ReadersMustAgreeOnTheOrderOfWritesToDifferentKeys) {
    const Call first = write(1, 9, {{0, 7}});
    const Call second = write(1, 9, {{1, 8}});
    EXPECT_EQ(judge({first, second, read(2, 3, {7, kInitial}), read(4, 5, {7, 8})}, 2),
              std::nullopt);
    // Each key alone is linearizable.
    EXPECT_EQ(judge({first, second, read(2, 4, {7, kInitial}), read(3, 5, {kInitial, 8})}, 2), 3U);
}

TEST(Judge, ThrowsForTooManyOverlappingCalls) {
    std::vector<Call> calls(33, write(1, 2, 7));
    EXPECT_THROW(judge(calls), std::runtime_error);
    // Twenty writes to different keys give too many configurations.
    calls.clear();
    for (Value value = 2; value < 22; ++value) {
        calls.push_back(write(1, 2, Write{{value - 2, value}}));
    }
    calls.push_back(read(1, 1, Values(20, 99)));
    EXPECT_THROW(judge(calls, 20), std::runtime_error);
}

// Returns whether some order of the remaining calls explains them.
bool anyOrderExplains(const Values& values, std::vector<Call> left) {
    if (left.empty()) {
        return true;
    }
    std::int64_t firstResponse = left.front().responded;
    for (const Call& call : left) {
        firstResponse = std::min(firstResponse, call.responded);
    }
    for (std::size_t next = 0; next < left.size(); ++next) {
        if (left[next].invoked > firstResponse) {
            continue;
        }
        Values after = values;
        if (const Write* const write = std::get_if<Write>(&left[next].action)) {
            for (const auto& [key, value] : *write) {
                after[key] = value;
            }
        } else if (std::get<Read>(left[next].action) != values) {
            continue;
        }
        std::vector<Call> others = left;
        others.erase(others.begin() + static_cast<std::ptrdiff_t>(next));
        if (anyOrderExplains(after, others)) {
            return true;
        }
    }
    return false;
}

TEST(Judge, AgreesWithTryingEveryOrder) {
    constexpr int kHistories = 20'000;
    std::mt19937 random(20261120);
    const auto upTo = [&](int most) { return std::uniform_int_distribution<int>(0, most)(random); };
    int linearizable = 0;
    for (int history = 0; history < kHistories; ++history) {
        const auto keys = std::size_t{1} + static_cast<std::size_t>(upTo(1));
        std::vector<Call> calls;
        for (int count = 1 + upTo(6); count > 0; --count) {
            const std::int64_t invoked = upTo(12);
            const std::int64_t responded = invoked + upTo(6);
            if (upTo(1) == 0) {
                Values values(keys);
                for (Value& value : values) {
                    value = static_cast<Value>(upTo(3));
                }
                calls.push_back(read(invoked, responded, values));
            } else {
                Write values;
                for (int changes = 1 + upTo(1); changes > 0; --changes) {
                    values.emplace_back(upTo(static_cast<int>(keys) - 1), upTo(3));
                }
                calls.push_back(write(invoked, responded, values));
            }
        }
        const bool expected = anyOrderExplains(Values(keys, kInitial), calls);
        linearizable += static_cast<int>(expected);
        ASSERT_EQ(judge(calls, keys) == std::nullopt, expected) << "history " << history;
    }
    // The histories must contain enough of both kinds.
    EXPECT_GT(linearizable, kHistories / 10);
    EXPECT_LT(linearizable, kHistories * 9 / 10);
}

}  // namespace
}  // namespace qv::tests
