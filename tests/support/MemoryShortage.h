// SPDX-License-Identifier: Apache-2.0

// Makes each allocation of an action fail in turn, alone and together with all later ones.
//
//     const int allocations = sweepShortages([&](Shortage& shortage) {
//         ... prepare ...
//         shortage.during([&] { ... the action ... });
//         ... check; release everything ...
//     });
//
// The test fails if a round leaves allocated memory behind.
#ifndef QV_TESTS_MEMORY_SHORTAGE_H
#define QV_TESTS_MEMORY_SHORTAGE_H

#include <gtest/gtest.h>

#include <climits>
#include <new>

#include "support/FailingCalls.h"

namespace qv::tests {

class Shortage {
  public:
    using Order = void (*)(int count);

    Shortage(Order order, int count) : order_(order), count_(count) {}

    // Runs the action. Returns true if the action ended, false if it threw std::bad_alloc.
    template <class Action>
    bool during(Action action) {
        bool ended = true;
        order_(count_);
        try {
            action();
        } catch (const std::bad_alloc&) {
            ended = false;
        }
        happened_ = mallocFailed();
        EXPECT_TRUE(ended || happened_);
        return ended;
    }

    // Returns whether an allocation failed.
    bool happened() const { return happened_; }

  private:
    Order order_;
    int count_;
    bool happened_ = false;
};

// Returns how many allocations the action has.
template <class Round>
int sweepShortages(Round round) {
    // The first round makes the objects that are made once and kept.
    Shortage none(failMallocAfter, INT_MAX);
    round(none);
    EXPECT_FALSE(none.happened());

    int count = 0;
    for (const Shortage::Order order : {failMallocAfter, failEveryMallocAfter}) {
        for (count = 0;; ++count) {
            const long before = liveAllocations();
            Shortage shortage(order, count);
            round(shortage);
            EXPECT_EQ(liveAllocations() - before, 0)
                << "the round that fails allocation " << count << " leaves memory behind";
            if (!shortage.happened() || testing::Test::HasFailure()) {
                break;
            }
        }
    }
    return count;
}

}  // namespace qv::tests

#endif  // QV_TESTS_MEMORY_SHORTAGE_H
