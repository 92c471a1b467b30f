// SPDX-License-Identifier: Apache-2.0

// The base of the tests that play a scenario with one fault after another.
#ifndef QV_TESTS_SCENARIO_TEST_H
#define QV_TESTS_SCENARIO_TEST_H

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "Scenarios.h"

namespace qv::tests {

class ScenarioTest : public testing::TestWithParam<Scenario> {
  protected:
    // Plays the scenario without a fault, and then only up to its operation.
    ScenarioTest();
    // Checks the outcome without a fault.
    void SetUp() override;

    TracedRun play(const Fault& fault) const {
        return tests::play(GetParam(), plugin_, files_, fault);
    }
    ChildRun play(const Interference& interference) const {
        return tests::play(GetParam(), plugin_, files_, interference);
    }

    // Starts the plug-in in a child process, with the files as they are. Returns the services. The
    // test's own process never starts the plug-in, so that each child begins with a fresh one.
    std::string start() const;
    // Does the same with the copies that the child kept.
    std::string startFromKept() const;

    // Returns whether the operation reads or writes the files.
    bool usesFiles() const {
        return GetParam().loads() || (GetParam().isRegistration() && GetParam().main &&
                                      expected_.services != inMemoryBefore_);
    }

    // Checks the outcome of the operation. `isOfMemory` says whether the fault is a lack of memory.
    void checkOutcome(const Report& report, bool isOfMemory);
    // Checks what holds after any fault: the process continues, and each command works.
    // `mayStayOpen` is how many descriptors may stay open beside those without the fault.
    void checkLife(const Report& report, int mayStayOpen = 0) const;
    // Checks what the operation leaves in memory and on the disk.
    void checkEffect(const Report& report, bool isOfMemory, bool mayPreventSave);

    // Prints and records how many faults there were, and how often each consequence occurred.
    void record(int faults);

    // The first member, because loading sets the directories in the environment.
    const LoadedPlugin plugin_;
    const ConfigurationFiles files_;

  private:
    using Files = std::pair<std::optional<std::string>, std::optional<std::string>>;
    std::string startOf(Files files) const;
    std::string otherStart() const;
    void checkLoaded(const Report& report);
    void checkEntries(const Report& report) const;
    void checkSaved(const Report& report, bool isOfMemory, bool mayPreventSave);

    // The services of the starts so far, by the files. The same files always give the same
    // services.
    mutable std::map<Files, std::string> starts_;

  protected:
    const TracedRun good_;
    const Report expected_;
    // The services of a start after the operation.
    const std::string after_;
    // The services in memory before the operation.
    const std::string inMemoryBefore_;
    // The services of a start in place of the operation.
    const std::string before_;
    // The services of a start that cannot read the good file: those of the backup. Empty if there
    // is no good file.
    const std::string other_;

  private:
    int badAllocs_ = 0;
    int answersWithoutMemory_ = 0;
    int otherStarts_ = 0;
    int emptyStarts_ = 0;
    int unsaved_ = 0;

  protected:
    // How often a registration threw and the next one saved its change.
    int savedByTheNext_ = 0;
    // How often the file was missing afterwards.
    int withoutFile_ = 0;
};

// Returns the scenario's name, for the name of a test.
std::string nameOf(const testing::TestParamInfo<Scenario>& info);

}  // namespace qv::tests

#endif  // QV_TESTS_SCENARIO_TEST_H
