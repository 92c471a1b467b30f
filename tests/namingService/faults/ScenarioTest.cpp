#include "ScenarioTest.h"

#include <gmock/gmock.h>

namespace qv::tests {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kRequested[] = "unix:/run/second-moved";

}  // namespace

ScenarioTest::ScenarioTest()
    : good_(play({})), expected_(good_.report), after_(startFromKept()), before_([this] {
          play(Fault::killBefore(0));
          return start();
      }()) {}

void ScenarioTest::SetUp() {
    ASSERT_TRUE(good_.hasReturned()) << good_.report;
    EXPECT_EQ(expected_.outcome, "0");
    EXPECT_EQ(expected_.services, after_);
    if (GetParam().isStart()) {
        EXPECT_EQ(before_, after_);
        EXPECT_THAT(after_, HasSubstr("1=unix:/run/s"));
    } else {
        EXPECT_THAT(before_, Not(HasSubstr(kRequested)));
        EXPECT_THAT(after_, HasSubstr(kRequested));
    }
    EXPECT_EQ(expected_.nextOutcome, "0");
    EXPECT_EQ(expected_.nextServices, expected_.services + " 1000=unix:/run/next");
    // No more than one, and the one that was given up where the file is another.
    for (const auto& [name, times] : expected_.openFiles) {
        if (name.find(files_.directory()) == 0) {
            EXPECT_EQ(times, 1) << name;
        }
    }
}

std::string nameOf(const testing::TestParamInfo<Scenario>& info) {
    return info.param.name;
}

}  // namespace qv::tests
