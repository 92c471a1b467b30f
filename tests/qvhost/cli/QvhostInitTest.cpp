// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "qvhost/ProgramRun.h"
#include "support/ConfigurationDocuments.h"
#include "support/FileModes.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;

constexpr char kName[] = "/namingService.conf.plist";

TEST(QvhostInit, MakesTheFileAndSaysWhere) {
    ProgramRun program;
    fs::remove(program.configuration());
    const ProgramOutcome outcome = program.run({"init"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "made " + program.configuration() + "\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(tests::modeOf(program.configuration()), 0600U);
    EXPECT_FALSE(fs::exists(program.files().path("log")));
}

TEST(QvhostInit, JsonHoldsThePath) {
    ProgramRun program;
    fs::remove(program.configuration());
    EXPECT_EQ(json::parse(program.run({"init", "--json"}).out),
              json({{"path", program.configuration()}}));
}

TEST(QvhostInit, RelativeDirectoryIsTakenFromTheCurrentOne) {
    ProgramRun program;
    const std::string directory =
        fs::relative(program.files().path("new/state"), fs::current_path()).string();
    const ProgramOutcome outcome = program.run({"init", "--config-dir", directory});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "made " + directory + kName + "\n");
    EXPECT_TRUE(fs::exists(program.files().path("new/state") + kName));
    EXPECT_EQ(program.run({"list", "--offline", "--config-dir", directory}).status, 0);
}

TEST(QvhostInit, ReplacesNothing) {
    ProgramRun program;
    for (const char* content : {"<plist version='1.0'><dict/></plist>", "damaged"}) {
        program.files().write("config/namingService.conf.plist", content);
        const ProgramOutcome outcome = program.run({"init"});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err,
                  "qvhost: " + program.configuration() + " exists already and is left as it is\n");
        EXPECT_EQ(readFile(program.configuration()), content);
    }
}

TEST(QvhostInit, BackupIsLeftForThePluginToRestore) {
    ProgramRun program;
    fs::create_directory(program.files().path("config/backup"));
    program.files().write("config/backup/namingService.conf.plist",
                          tests::document(tests::entryOf({{1, "a"}})));
    fs::remove(program.configuration());
    const ProgramOutcome outcome = program.run({"init"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("the plug-in will restore " + program.configuration()));
    EXPECT_FALSE(fs::exists(program.configuration()));
    EXPECT_EQ(program.run({"list", "--offline"}).out, "ID  ADDRESS\n 1  a\n");
}

TEST(QvhostInit, DirectoryThatCannotBeMadeIsNamed) {
    ProgramRun program;
    const std::string directory = program.files().write("file", "") + "/state";
    const ProgramOutcome outcome = program.run({"init", "--config-dir", directory});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, testing::AllOf(testing::StartsWith("qvhost: cannot make "),
                                            HasSubstr(directory), HasSubstr("Not a directory")));
}

TEST(QvhostInit, FullDiskIsAFailureThatLeavesNothing) {
    ProgramRun program;
    // The program ignores the signal itself, but ThreadSanitizer writes a file before that.
#ifdef QV_SANITIZED
    const std::string ignored = "trap '' XFSZ\n";
#else
    const std::string ignored;
#endif
    // This script lets qvhost write no file. A pipe takes the messages, for which the limit would
    // hold as well.
    const std::string limited =
        program.files().write("limited", "#!/bin/sh\n" + ignored +
                                             "ulimit -S -f 0\n"
                                             "message=$('" QVHOST_PROGRAM
                                             "' \"$@\" 2>&1)\n"
                                             "status=$?\n"
                                             "ulimit -S -f \"$(ulimit -H -f)\"\n"
                                             "printf '%s\\n' \"$message\" >&2\n"
                                             "exit $status\n");
    fs::permissions(limited, fs::perms::owner_all);
    program.setProgram(limited);
    const std::string directory = program.files().path("new/state");
    const ProgramOutcome outcome = program.run({"init", "--config-dir", directory});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "qvhost: cannot make " + directory + kName + ": File too large\n");
    EXPECT_FALSE(fs::exists(program.files().path("new")));
}

TEST(QvhostInit, InterruptionLeavesAWholeFileOrNothing) {
    ProgramRun whole;
    fs::remove(whole.configuration());
    whole.run({"init"});
    for (useconds_t delay = 0; delay < 10'000; delay += 250) {
        ProgramRun program;
        const std::string directory = program.files().path("new");
        program.start({"init", "--config-dir", directory});
        usleep(delay);
        program.signal(SIGINT);
        program.finish();
        if (fs::exists(directory)) {
            EXPECT_EQ(readFile(directory + kName), readFile(whole.configuration()));
            EXPECT_TRUE(fs::is_directory(directory + "/backup"));
            EXPECT_EQ(std::distance(fs::directory_iterator(directory), {}), 2);
        }
    }
}

TEST(QvhostInit, PathBeyondThePluginsBoundIsAFailure) {
    ProgramRun program;
    const std::string directory = program.files().path("") + std::string(2048, '/');
    const ProgramOutcome made = program.run({"init", "--config-dir", directory});
    EXPECT_THAT(made.err, HasSubstr("the configuration file's path is too long"));
    EXPECT_EQ(made.status, 1);
}

TEST(QvhostInit, PluginThatDoesNotTellThePlaceIsAFailure) {
    ProgramRun program;
    const ProgramOutcome outcome = program.run({"init", "--plugin", QVHOST_FAKE_PLUGIN});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "qvhost: the plug-in does not tell where its configuration is\n");
}

}  // namespace
}  // namespace qv::host
