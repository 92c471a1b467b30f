// A test that goes through the scenarios with one fault after the other.
#ifndef QV_TESTS_SCENARIO_TEST_H
#define QV_TESTS_SCENARIO_TEST_H

#include <gtest/gtest.h>

#include <string>

#include "Scenarios.h"

namespace qv::tests {

class ScenarioTest : public testing::TestWithParam<Scenario> {
  protected:
    // Goes through it without a fault, and up to in front of its first call.
    ScenarioTest();
    // Checks what comes of it without a fault.
    void SetUp() override;

    TracedRun play(const Fault& fault) const {
        return tests::play(GetParam(), plugin_, files_, fault);
    }
    // The services of a start now, and of one from the files that the child kept.
    std::string start() const { return listed(files_.start(plugin_)); }
    std::string startFromKept() const { return listed(files_.startFromKept(plugin_)); }

    // Loaded first: loading points the plug-in to other directories.
    const LoadedPlugin plugin_;
    const ConfigurationFiles files_;
    const TracedRun good_;
    const Report expected_;
    // The services of a start after the part with the faults, and of one instead of it.
    const std::string after_;
    const std::string before_;
};

// As it stands in a name of a test.
std::string nameOf(const testing::TestParamInfo<Scenario>& info);

}  // namespace qv::tests

#endif  // QV_TESTS_SCENARIO_TEST_H
