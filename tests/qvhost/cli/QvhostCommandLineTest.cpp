// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "qvhost/ProgramRun.h"

namespace qv::host {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST(QvhostCommandLine, WrongUseExitsWithTwoAndRunsNothing) {
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"lst"},
        {"--nope", "list"},
        {"list", "--nope"},
        {"list", "more"},
        {"--plugin"},
        {"list", "info"},
        {"list", "--offline", "--timeout", "1"},
        {"init", "x"},
        {"info", "-x"},
        {"run"},
        {"wake"},
        {"--log-dir="},
    };
    for (const std::vector<std::string>& arguments : wrong) {
        ProgramRun program;
        const ProgramOutcome outcome = program.run(arguments);
        EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
        EXPECT_THAT(outcome.err, StartsWith("qvhost: ")) << testing::PrintToString(arguments);
        EXPECT_THAT(outcome.out, IsEmpty()) << testing::PrintToString(arguments);
        EXPECT_FALSE(std::filesystem::exists(program.files().path("log")));
    }
}

TEST(QvhostCommandLine, MisspeltOptionsAndSubcommandsGetSuggestions) {
    ProgramRun program;
    EXPECT_THAT(program.run({"lst"}).err, HasSubstr("did you mean 'list'?"));
    EXPECT_THAT(program.run({"initt"}).err, HasSubstr("did you mean 'init'?"));
    EXPECT_THAT(program.run({"list", "--jsn"}).err, HasSubstr("did you mean '--json'?"));
    EXPECT_THAT(program.run({"--plugni", "x", "info"}).err, HasSubstr("did you mean '--plugin'?"));
}

TEST(QvhostCommandLine, MistakesInOptionsAreToldInOwnWords) {
    const std::pair<std::vector<std::string>, const char*> wrong[] = {
        {{"--plugin"}, "--plugin needs a value (see qvhost --help)"},
        {{"list", "--socket"}, "--socket needs a value (see qvhost list --help)"},
        {{"list", "--socket="}, "--socket needs a value (see qvhost list --help)"},
        {{"list", "--socket", ""}, "--socket: the name is empty (see qvhost list --help)"},
        {{"list", "--socket", "a", "--socket", "b"},
         "--socket is given more than once (see qvhost list --help)"},
        {{"serve", "--threads", "0"},
         "--threads: a number from 1 to 1024 is needed, not '0' (see qvhost serve --help)"},
        {{"serve", "--threads", "2x"},
         "--threads: a number from 1 to 1024 is needed, not '2x' (see qvhost serve --help)"},
        {{"serve", "--max-message", "99999999999999999999"},
         "--max-message: a number from 0 to 2147483647 is needed, not '99999999999999999999' (see "
         "qvhost serve --help)"},
        {{"serve", "--idle-timeout", "soon"},
         "--idle-timeout: a number of seconds from 0 to 1000000 is needed, not 'soon' (see qvhost "
         "serve --help)"},
    };
    for (const auto& [arguments, message] : wrong) {
        ProgramRun program;
        const ProgramOutcome outcome = program.run(arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.err, std::string("qvhost: ") + message + '\n');
    }
}

TEST(QvhostCommandLine, MessageDrivesNoTerminal) {
    ProgramRun program;
    EXPECT_THAT(program.run({"\x1b[2Jlist"}).err,
                AllOf(HasSubstr("\\x1b[2Jlist"), testing::Not(HasSubstr("\x1b"))));
}

TEST(QvhostCommandLine, HelpExplainsEverySubcommandWithExamples) {
    ProgramRun program;
    for (const char* option : {"--help", "-h"}) {
        const ProgramOutcome outcome = program.run({option});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.out, AllOf(HasSubstr("serve"), HasSubstr("list"), HasSubstr("info"),
                                       HasSubstr("init"), HasSubstr("qvhost --config-dir")));
    }
    EXPECT_THAT(program.run({"init", "--help"}).out, HasSubstr("{\"path\":"));
    EXPECT_THAT(program.run({"list", "--offline", "--help"}).out, HasSubstr("[{\"id\":1,"));
    EXPECT_THAT(program.run({"info", "--help"}).out, HasSubstr("0x0200"));
}

TEST(QvhostCommandLine, VersionIsPrintedWithTheProgramsName) {
    ProgramRun program;
    const ProgramOutcome outcome = program.run({"--version"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, testing::MatchesRegex("qvhost [0-9.]+\n"));
}

TEST(QvhostCommandLine, OptionsMayFollowTheCommand) {
    ProgramRun program;
    const ProgramOutcome before = program.run({"--json", "--plugin", QVHOST_FAKE_PLUGIN, "info"});
    const ProgramOutcome after = program.run({"info", "--plugin", QVHOST_FAKE_PLUGIN, "--json"});
    EXPECT_EQ(before.status, 0);
    EXPECT_EQ(before.out, after.out);
    EXPECT_THAT(before.out, HasSubstr("fake get"));
}

TEST(QvhostCommandLine, MissingConfigurationDirectoryIsWrongUse) {
    ProgramRun program;
    const std::string directory = program.files().path("none");
    const ProgramOutcome outcome = program.run({"serve", "--config-dir", directory});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, HasSubstr(directory));
}

TEST(QvhostCommandLine, WordAfterALoneDoubleDashIsTheOneThatIsWrong) {
    ProgramRun program;
    EXPECT_THAT(program.run({"--", "lst"}).err, HasSubstr("did you mean 'list'?"));
}

TEST(QvhostCommandLine, MissingPluginFileIsNamed) {
    ProgramRun program;
    const std::string file = program.files().path("libnone.so");
    const ProgramOutcome outcome = program.run({"info", "--plugin", file});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, StartsWith("qvhost: cannot load " + file + ": "));
}

TEST(QvhostCommandLine, FileThatIsNoLibraryIsNamed) {
    ProgramRun program;
    const std::string file = program.files().write("libtext.so", "no library\n");
    const ProgramOutcome outcome = program.run({"info", "--plugin", file});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, StartsWith("qvhost: cannot load " + file + ": "));
}

TEST(QvhostCommandLine, LibraryThatLacksTheFunctionsIsNoPlugin) {
    ProgramRun program;
    const ProgramOutcome outcome = program.run({"info", "--plugin", QVHOST_INCOMPLETE_PLUGIN});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, AllOf(HasSubstr(QVHOST_INCOMPLETE_PLUGIN),
                                   HasSubstr("it has no function QvPlugin")));
}

TEST(QvhostCommandLine, RelativePluginPathIsTakenFromTheCurrentDirectory) {
    ProgramRun program;
    const ProgramOutcome outcome = program.run({"info", "--plugin", "libnone.so"});
    EXPECT_THAT(outcome.err, HasSubstr(std::filesystem::current_path().string() + "/libnone.so"));
}

TEST(QvhostCommandLine, ProgramWithoutItsPluginSaysWhereItLooked) {
    ProgramRun program;
    const std::filesystem::path bin = program.files().path("bin");
    std::filesystem::create_directory(bin);
    std::filesystem::copy_file(QVHOST_PROGRAM, bin / "qvhost");
    program.setProgram(bin / "qvhost");
    // These are the libraries that the program itself needs.
    program.setVariable("LD_LIBRARY_PATH", QVHOST_LIBRARY_DIR);
    program.setVariable("DYLD_LIBRARY_PATH", QVHOST_LIBRARY_DIR);
    const ProgramOutcome outcome = program.run({"info"});
    if (outcome.status == 0) {
        GTEST_SKIP() << "the plug-in is installed: " << outcome.out;
    }
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("cannot find the plug-in"), HasSubstr(bin.string()),
                                   HasSubstr(program.files().path("lib"))));
}

TEST(QvhostInfo, ShowsTheBuiltPluginsIdAndCommands) {
    ProgramRun program;
    const ProgramOutcome outcome = program.run({"info"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(
        outcome.out,
        AllOf(HasSubstr("namingService"), HasSubstr("id       2\n"),
              HasSubstr("0x0200  register services\n"), HasSubstr("0x0201  unregister services\n"),
              HasSubstr("0x0202  get services\n"), HasSubstr("0x0102  set debug level\n")));
}

TEST(QvhostInfo, JsonHoldsTheSame) {
    ProgramRun program;
    const json info = json::parse(program.run({"info", "--json"}).out);
    EXPECT_EQ(info.at("id"), 2);
    EXPECT_TRUE(std::filesystem::path(info.at("path").get<std::string>()).is_absolute());
    EXPECT_EQ(info.at("commands").size(), 4U);
}

TEST(QvhostInfo, TouchesNoFileOfThePlugin) {
    ProgramRun program;
    std::filesystem::remove(program.configuration());
    EXPECT_EQ(program.run({"info"}).err, "");
    EXPECT_FALSE(std::filesystem::exists(program.files().path("log")));
    EXPECT_TRUE(std::filesystem::is_empty(program.files().path("config")));
}

TEST(QvhostInfo, PluginOfAnotherKindCanBeLookedAt) {
    ProgramRun program;
    program.setVariable("QVHOST_FAKE", "has another id");
    EXPECT_THAT(program.run({"info", "--plugin", QVHOST_FAKE_PLUGIN}).out,
                HasSubstr("id       7\n"));
}

TEST(QvhostOutput, FullDeviceIsAFailure) {
    if (access("/dev/full", W_OK) != 0) {
        GTEST_SKIP() << "no /dev/full here";
    }
    const std::vector<std::vector<std::string>> commands = {{"list", "--offline"},
                                                            {"list", "--offline", "--json"},
                                                            {"info"},
                                                            {"--help"},
                                                            {"--version"}};
    for (const std::vector<std::string>& arguments : commands) {
        ProgramRun program;
        program.setOutput("/dev/full");
        const ProgramOutcome outcome = program.run(arguments);
        EXPECT_EQ(outcome.status, 1) << testing::PrintToString(arguments);
        EXPECT_THAT(outcome.err, HasSubstr("cannot write to standard output"));
    }
}

}  // namespace
}  // namespace qv::host
