// SPDX-License-Identifier: Apache-2.0

#include "ScenarioTest.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <sstream>
#include <stdexcept>

namespace qv::tests {
namespace {

using testing::AnyOf;
using testing::Eq;

constexpr char kNextService[] = "1000=unix:/run/next";

std::string withNext(const std::string& services) {
    return services.empty() ? kNextService : services + ' ' + kNextService;
}

std::map<std::string, std::string> entriesOf(const std::string& services) {
    std::map<std::string, std::string> entries;
    std::istringstream words(services);
    std::string word;
    while (words >> word) {
        const std::string::size_type sign = word.find('=');
        entries[word.substr(0, sign)] = word.substr(sign + 1);
    }
    return entries;
}

}  // namespace

ScenarioTest::ScenarioTest()
    : good_(play(Fault())),
      expected_(good_.report),
      after_(startFromKept()),
      inMemoryBefore_(playUpToOperation(GetParam(), plugin_, files_).report),
      before_(start()),
      other_(otherStart()) {}

void ScenarioTest::SetUp() {
    const Scenario& scenario = GetParam();
    ASSERT_TRUE(good_.hasReturned()) << good_.report;
    EXPECT_EQ(expected_.outcome, std::to_string(scenario.result));
    checkLife(expected_);
    if (scenario.isRegistration() && scenario.main) {
        EXPECT_EQ(expected_.services, after_);
    } else {
        EXPECT_EQ(before_, after_);
    }
    EXPECT_EQ(expected_.isLogged, scenario.isLogged());
    // The libraries allocate some memory once and keep it, so only the second life counts.
    const ChildRun twice = playTwice(scenario, plugin_, files_);
    ASSERT_TRUE(twice.hasReturned()) << twice.report;
    EXPECT_EQ(Report(twice.report).leftBehind, 0);
    if (usesFiles() && !scenario.loads()) {
        EXPECT_NE(before_, after_);
    }
    // The plug-in leaves at most one descriptor open: that of a file that was replaced or removed.
    EXPECT_LE(expected_.openFiles.size(), 1U);
}

std::string ScenarioTest::startOf(Files files) const {
    const auto known = starts_.find(files);
    if (known != starts_.end()) {
        return known->second;
    }
    const ChildRun run = runInChild([this] { return listed(files_.start(plugin_)); });
    if (!run.hasReturned()) {
        throw std::runtime_error("a start has failed: " + run.report);
    }
    return starts_.emplace(std::move(files), run.report).first->second;
}

std::string ScenarioTest::start() const {
    return startOf({files_.main(), files_.backup()});
}

std::string ScenarioTest::startFromKept() const {
    files_.putKept();
    return start();
}

std::string ScenarioTest::otherStart() const {
    files_.put(GetParam().main, std::nullopt);
    if (!GetParam().loads() || start().empty()) {
        return {};
    }
    files_.put(std::nullopt, GetParam().backup);
    return start();
}

void ScenarioTest::checkLife(const Report& report, int mayStayOpen) const {
    EXPECT_EQ(report.nextOutcomes, "0 0 0");
    EXPECT_EQ(report.nextServices, withNext(report.services));
    EXPECT_EQ(report.lastServices, report.services);
    EXPECT_TRUE(report.isLogWhole);
    // A log that could not be opened stays closed.
    EXPECT_TRUE(report.isLogged || GetParam().isStart() || !expected_.isLogged);
    EXPECT_LE(report.leftBehind, expected_.leftBehind);
    for (const auto& [name, times] : report.openFiles) {
        const auto usual = expected_.openFiles.find(name);
        const int besides = times - (usual == expected_.openFiles.end() ? 0 : usual->second);
        EXPECT_LE(besides, name == files_.mainFile() ? mayStayOpen : 0) << name;
    }
}

void ScenarioTest::checkOutcome(const Report& report, bool isOfMemory) {
    if (report.outcome == expected_.outcome) {
        EXPECT_EQ(report.answer, expected_.answer);
        return;
    }
    const Scenario& scenario = GetParam();
    EXPECT_TRUE(isOfMemory);
    EXPECT_FALSE(scenario.isEnd() || scenario.is(QV_COMMAND_SET_DEBUG_LEVEL));
    EXPECT_EQ(report.answer, "");
    if (report.outcome == std::to_string(QV_ERROR_NO_MEMORY)) {
        EXPECT_TRUE(scenario.is(QV_COMMAND_GET_SERVICES));
        ++answersWithoutMemory_;
    } else {
        EXPECT_EQ(report.outcome, "bad_alloc");
        ++badAllocs_;
    }
}

void ScenarioTest::checkEffect(const Report& report, bool isOfMemory, bool mayPreventSave) {
    const Scenario& scenario = GetParam();
    if (scenario.loads()) {
        checkLoaded(report);
        return;
    }
    if (report.outcome == expected_.outcome) {
        EXPECT_EQ(report.services, expected_.services);
    } else if (scenario.isRegistration()) {
        checkEntries(report);
    } else {
        EXPECT_EQ(report.services, inMemoryBefore_);
    }
    if (scenario.isRegistration() && scenario.main) {
        checkSaved(report, isOfMemory, mayPreventSave);
    } else {
        EXPECT_EQ(start(), scenario.main ? report.nextServices : "");
        EXPECT_EQ(startFromKept(), before_);
    }
}

// Checks that each service is as before or as requested.
void ScenarioTest::checkEntries(const Report& report) const {
    const auto entries = entriesOf(report.services);
    const auto former = entriesOf(inMemoryBefore_);
    const auto requested = entriesOf(expected_.services);
    for (const auto& [id, address] : entries) {
        EXPECT_TRUE((former.count(id) != 0 && former.at(id) == address) ||
                    (requested.count(id) != 0 && requested.at(id) == address))
            << id << '=' << address;
    }
    for (const auto& [id, address] : former) {
        EXPECT_EQ(entries.count(id), 1U) << id;
    }
}

void ScenarioTest::checkSaved(const Report& report, bool isOfMemory, bool mayPreventSave) {
    const bool isGone = !files_.keptMain();
    withoutFile_ += isGone ? 1 : 0;
    if (report.outcome != expected_.outcome && !isGone && !report.services.empty()) {
        const bool isChanged = report.services != inMemoryBefore_;
        EXPECT_EQ(report.repetition, isChanged ? "all and nothing" : "nothing and nothing");
        savedByTheNext_ += isChanged ? 1 : 0;
    }
    // If the file was removed and could not be made again, this host does not make it at all.
    EXPECT_EQ(start(), isGone && !isOfMemory ? before_ : report.nextServices);
    const std::string fromKept = startFromKept();
    EXPECT_THAT(fromKept, AnyOf(Eq(mayPreventSave ? before_ : after_), Eq(after_)));
    unsaved_ += fromKept == after_ ? 0 : 1;
}

void ScenarioTest::checkLoaded(const Report& report) {
    EXPECT_THAT(report.services, AnyOf(Eq(after_), Eq(other_), Eq("")));
    otherStarts_ += report.services == after_ ? 0 : 1;
    const std::string atEnd = start();
    const std::string fromKept = startFromKept();
    if (report.services.empty()) {
        ++emptyStarts_;
        // This host saves nothing. The next host loads the files as they are.
        EXPECT_THAT(fromKept, AnyOf(Eq(after_), Eq(other_)));
        EXPECT_EQ(atEnd, fromKept);
    } else {
        EXPECT_EQ(fromKept, report.services);
        EXPECT_EQ(atEnd, report.nextServices);
    }
}

void ScenarioTest::record(int faults) {
    const std::pair<const char*, int> figures[] = {
        {"faults", faults},
        {"badAllocs", badAllocs_},
        {"answersWithoutMemory", answersWithoutMemory_},
        {"otherStarts", otherStarts_},
        {"emptyStarts", emptyStarts_},
        {"unsaved", unsaved_},
        {"savedByTheNext", savedByTheNext_},
        {"withoutFile", withoutFile_},
    };
    for (const auto& [name, figure] : figures) {
        RecordProperty(name, figure);
        std::printf("%s%s %d", name == figures[0].first ? "" : ", ", name, figure);
    }
    std::printf("\n");
}

std::string nameOf(const testing::TestParamInfo<Scenario>& info) {
    return info.param.name;
}

}  // namespace qv::tests
