// SPDX-License-Identifier: Apache-2.0

// Makes each allocation of every operation fail in turn, alone and together with all later ones.
// The host gets a std::bad_alloc or the result code, or the log lacks a record. Each service is as
// before or as requested, both files are whole, no memory is lost, and the next commands work.

#include <gtest/gtest.h>

#include <iterator>

#include "ScenarioTest.h"
#include "support/FailingCalls.h"

namespace qv::tests {
namespace {

using Order = void (*)(int count);

class EveryAllocationFails : public ScenarioTest {
  protected:
    // Returns how many allocations the operation has.
    int sweep(Order order) {
        for (int count = 0;; ++count) {
            const Interference shortage{[&] {
                                            order(count);
                                            return 0L;
                                        },
                                        mallocFailed};
            const ChildRun run = play(shortage);
            SCOPED_TRACE("allocation " + std::to_string(count));
            EXPECT_TRUE(run.hasReturned()) << run.status << ' ' << run.report;
            if (!run.hasReturned()) {
                return count;
            }
            const Report report(run.report);
            checkOutcome(report, report.isStruck);
            checkLife(report);
            checkEffect(report, true, report.isStruck);
            if (!report.isStruck || HasFailure()) {
                return count;
            }
        }
    }

    int fewestAllocations() const {
        const Scenario& scenario = GetParam();
        const bool isChangeOfLevel = scenario.is(QV_COMMAND_SET_DEBUG_LEVEL);
        return usesFiles() ? 15 : scenario.writesRecord() || !isChangeOfLevel ? 1 : 0;
    }
};

TEST_P(EveryAllocationFails, AndTheHostContinues) {
    const int alone = sweep(failMallocAfter);
    ASSERT_FALSE(HasFailure());
    const int fromThenOn = sweep(failEveryMallocAfter);
    EXPECT_GE(alone, fewestAllocations());
    EXPECT_EQ(fromThenOn, alone);
    if (GetParam().is(QV_COMMAND_SET_DEBUG_LEVEL) && !GetParam().writesRecord()) {
        EXPECT_EQ(alone, 0);
    }
    if (usesFiles() && GetParam().isRegistration()) {
        EXPECT_GT(savedByTheNext_ + withoutFile_, 2);
    }
    record(alone + fromThenOn);
}

INSTANTIATE_TEST_SUITE_P(Each, EveryAllocationFails, testing::ValuesIn(scenariosOfFew()), nameOf);

}  // namespace
}  // namespace qv::tests
