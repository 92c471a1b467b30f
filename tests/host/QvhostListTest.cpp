#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "ProgramRun.h"

namespace qv::host {
namespace {

using nlohmann::json;
using testing::HasSubstr;

TEST(QvhostList, EmptyDirectoryIsSaidInWords) {
    ProgramRun program;
    const Outcome outcome = program.run({"list", "--offline"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "no services\n");
    EXPECT_EQ(outcome.err, "");
}

TEST(QvhostList, JsonOfAnEmptyDirectoryIsAnEmptyArray) {
    ProgramRun program;
    EXPECT_EQ(program.run({"list", "--offline", "--json"}).out, "[]\n");
}

TEST(QvhostList, InitialisesAndFinalisesThePlugin) {
    ProgramRun program;
    const std::string record = program.files().path("record");
    program.setVariable("QVHOST_FAKE_RECORD", record);
    const Outcome outcome = program.run({"list", "--offline", "--plugin", QVHOST_FAKE_PLUGIN});
    EXPECT_EQ(outcome.out, "ID  ADDRESS\n 5  a\n 6  b\n");
    EXPECT_EQ(readFile(record), "initialize\n0202 \nanswer\nfree\nfinalize\n");
}

TEST(QvhostList, JsonHoldsEveryService) {
    ProgramRun program;
    const Outcome outcome =
        program.run({"list", "--offline", "--json", "--plugin", QVHOST_FAKE_PLUGIN});
    EXPECT_EQ(json::parse(outcome.out),
              json::array({{{"id", 5}, {"address", "a"}}, {{"id", 6}, {"address", "b"}}}));
}

TEST(QvhostList, ThrownTextIsReportedAndThePluginFinalised) {
    ProgramRun program;
    const std::string record = program.files().path("record");
    program.setVariable("QVHOST_FAKE_RECORD", record);
    program.setVariable("QVHOST_FAKE", "request throws text");
    const Outcome outcome = program.run({"list", "--offline", "--plugin", QVHOST_FAKE_PLUGIN});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(
        outcome.err,
        testing::EndsWith(
            "qvhost: cannot list the services: the plug-in failed: fail to get the lock\n"));
    EXPECT_THAT(readFile(record), HasSubstr("finalize"));
}

TEST(QvhostList, ThrownBadAllocIsReported) {
    ProgramRun program;
    program.setVariable("QVHOST_FAKE", "initialize throws bad_alloc");
    const Outcome outcome = program.run({"list", "--offline", "--plugin", QVHOST_FAKE_PLUGIN});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("the plug-in failed: out of memory"));
}

TEST(QvhostList, AnotherPluginIsRefused) {
    ProgramRun program;
    program.setVariable("QVHOST_FAKE", "has another id");
    const Outcome outcome = program.run({"list", "--offline", "--plugin", QVHOST_FAKE_PLUGIN});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("plug-in 7"));
}

TEST(QvhostList, SaysThatNothingIsKeptWithoutAFile) {
    ProgramRun program;
    std::filesystem::remove(program.configuration());
    const Outcome outcome = program.run({"list", "--offline"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "no services\n");
    EXPECT_EQ(outcome.err, "qvhost: warning: services are not kept: " + program.configuration() +
                               " does not exist (qvhost init makes it)\n");
    EXPECT_FALSE(std::filesystem::exists(program.configuration()));
}

TEST(QvhostList, SaysThatNothingIsKeptInADamagedFile) {
    ProgramRun program;
    program.files().write("config/namingService.conf.plist", "<plist><array/></plist>");
    const Outcome outcome = program.run({"list", "--offline"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "qvhost: warning: services are not kept: " + program.configuration() +
                               " is no property list with a dictionary as its root\n");
}

TEST(QvhostList, DamagedFileThatTheBackupReplacesIsNotWorthAWarning) {
    ProgramRun program;
    std::filesystem::create_directory(program.files().path("config/backup"));
    std::filesystem::rename(program.configuration(),
                            program.files().path("config/backup/namingService.conf.plist"));
    program.files().write("config/namingService.conf.plist", "damaged");
    EXPECT_EQ(program.run({"list", "--offline"}).err, "");
}

}  // namespace
}  // namespace qv::host
