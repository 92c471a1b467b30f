// SPDX-License-Identifier: Apache-2.0

// Kills the host before every system call of every operation. (A kill in the middle of a write can
// leave a mixture of both files, see MixturesTest.cpp.) The next start has either the
// directory of before the operation or that of after it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ScenarioTest.h"

namespace qv::tests {
namespace {

using testing::AnyOf;
using testing::Eq;

using KilledAtEveryCall = ScenarioTest;

TEST_P(KilledAtEveryCall, NextStartHasTheOldOrTheNewDirectory) {
    int kills = 0;
    int before = 0;
    while (true) {
        const TracedRun run = play(Fault::killBefore(kills));
        if (!run.wasKilled()) {
            ASSERT_TRUE(run.hasReturned()) << run.status << ' ' << run.report;
            break;
        }
        SCOPED_TRACE(std::to_string(kills) + ' ' + describe(run.calls.back()));
        const std::string services = start();
        EXPECT_THAT(services, AnyOf(Eq(before_), Eq(after_)));
        before += services == before_ ? 1 : 0;
        ++kills;
    }
    // The number of calls depends on the free memory of the process, so the last call may be
    // missing.
    for (int last = kills - 1; last >= 0; --last) {
        if (play(Fault::killAfter(last)).wasKilled()) {
            EXPECT_EQ(start(), after_);
            break;
        }
    }
    EXPECT_GE(kills, usesFiles() ? 9 : 0);
    RecordProperty("kills", kills);
    RecordProperty("before", before);
}

INSTANTIATE_TEST_SUITE_P(Each, KilledAtEveryCall, testing::ValuesIn(scenarios()), nameOf);

}  // namespace
}  // namespace qv::tests
