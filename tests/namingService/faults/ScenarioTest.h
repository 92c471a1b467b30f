// A test that goes through the scenarios with one fault after the other.
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
    // Goes through it without a fault, and up to in front of its operation.
    ScenarioTest();
    // Checks what comes of it without a fault.
    void SetUp() override;

    TracedRun play(const Fault& fault) const {
        return tests::play(GetParam(), plugin_, files_, fault);
    }
    ChildRun play(const Interference& interference) const {
        return tests::play(GetParam(), plugin_, files_, interference);
    }

    // The services of a start with the files as they are, and of one from those that the child
    // kept. In a process of its own, so that this one, of which the children are copies, remains
    // one in which nothing has happened yet.
    std::string start() const;
    std::string startFromKept() const;

    // Whether the operation reads or writes them.
    bool usesFiles() const {
        return GetParam().loads() || (GetParam().isRegistration() && GetParam().main &&
                                      expected_.services != inMemoryBefore_);
    }

    // What may come of a fault, which is one of memory or is not.
    void checkOutcome(const Report& report, bool isOfMemory);
    // What has to be so after any fault: the process has gone on, and each command works.
    // `mayStayOpen` says how many files beside those without the fault.
    void checkLife(const Report& report, int mayStayOpen = 0) const;
    // What the operation leaves in memory and on the disk.
    void checkEffect(const Report& report, bool isOfMemory, bool mayPreventSave);

    // Says how many faults there were, and how many of them came to what.
    void record(int faults);

    // Loaded first: loading points the plug-in to other directories.
    const LoadedPlugin plugin_;
    const ConfigurationFiles files_;

  private:
    using Files = std::pair<std::optional<std::string>, std::optional<std::string>>;
    std::string startOf(Files files) const;
    std::string otherStart() const;
    void checkLoaded(const Report& report);
    void checkEntries(const Report& report) const;
    void checkSaved(const Report& report, bool isOfMemory, bool mayPreventSave);

    // What starts with the same files always give.
    mutable std::map<Files, std::string> starts_;

  protected:
    const TracedRun good_;
    const Report expected_;
    // The services of a start after the operation, and of one instead of it; and those in memory in
    // front of it.
    const std::string after_;
    const std::string inMemoryBefore_;
    const std::string before_;
    // What a start may come to when it cannot read a file that it could: the backup's services, in
    // the place of a good file's; nothing without a good file.
    const std::string other_;

  private:
    int badAllocs_ = 0;
    int answersWithoutMemory_ = 0;
    int otherStarts_ = 0;
    int emptyStarts_ = 0;
    int unsaved_ = 0;

  protected:
    // How often it was the next registration that saved what one that threw had changed.
    int savedByTheNext_ = 0;
    // How often there was no file at all any more.
    int withoutFile_ = 0;
};

// As it stands in a name of a test.
std::string nameOf(const testing::TestParamInfo<Scenario>& info);

}  // namespace qv::tests

#endif  // QV_TESTS_SCENARIO_TEST_H
