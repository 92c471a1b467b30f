#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "ProgramRun.h"

namespace qv::host {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Lt;
using testing::Not;
using testing::SizeIs;

// Nothing was executed when not even the plug-in's log was opened.
bool ranNothing(const ProgramRun& program) {
    return !std::filesystem::exists(program.files().path("log"));
}

TEST(QvhostRun, ExampleRegistersWithdrawsAndLists) {
    ProgramRun program;
    const Outcome outcome = program.run({"run", QVHOST_EXAMPLES_DIR "/services.txt"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out,
              " ID  ADDRESS\n"
              " -2  xpc:com.vornak.lorx.diagnostics\n"
              " -1  /var/run/lorx/diagnostics.sock\n"
              "  1  /var/run/lorx/supervisor.sock\n"
              "  2  /var/run/lorx/settings.sock\n"
              "  3  /var/run/lorx/license.sock\n"
              "  4  /var/run/lorx/events.sock\n"
              " 10  /var/run/lorx/scan-on-access.sock\n"
              " 11  /var/run/lorx/scan-on-demand.sock\n"
              " 12  /var/run/lorx/quarantine.sock\n"
              " 13  /var/run/lorx/signature-store.sock\n"
              " 20  xpc:com.vornak.lorx.console\n"
              " 21  xpc:com.vornak.lorx.notifications\n"
              " 23  mach:com.vornak.lorx.kernel-events\n"
              " 24  xpc:com.vornak.lorx.web-filter\n"
              "256  tcp://127.0.0.1:49210\n"
              "257  tcp://127.0.0.1:49211\n"
              "258  tcp://[::1]:49212\n"
              "259  tcp://127.0.0.1:49213#telemetry\n"
              "260  /Library/Application Support/Vornak/LorxCore/firewall.sock\n");
}

TEST(QvhostRun, RaisedLevelPutsDetailsIntoTheLog) {
    ProgramRun quiet;
    quiet.run({"run"}, "register 1 /run/quiet.sock\n");
    EXPECT_THAT(quiet.log(), AllOf(Not(testing::IsEmpty()), Not(HasSubstr("/run/quiet.sock"))));
    ProgramRun verbose;
    verbose.run({"run"}, "level 7\nregister 1 /run/verbose.sock\n");
    EXPECT_THAT(verbose.log(), HasSubstr("/run/verbose.sock"));
}

TEST(QvhostRun, TypoNamesItsLineAndRunsNothing) {
    ProgramRun program;
    const std::string script = program.script("register 1 a\nlist\nregistre 2 b\n");
    const Outcome outcome = program.run({"run", script});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err,
              "qvhost: " + script + ":3: unknown command 'registre' (did you mean 'register'?)\n");
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(ranNothing(program));
}

TEST(QvhostRun, EveryWrongLineIsReported) {
    ProgramRun program;
    const std::string script =
        program.script("register x a\nlist\nregister 2147483648 b\nregister 3\n");
    const Outcome outcome = program.run({"run", script});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err,
                AllOf(HasSubstr(script + ":1: identifier must be a number"),
                      HasSubstr(script + ":3: identifier '2147483648' is out of range"),
                      HasSubstr(script + ":4: register needs an address")));
    EXPECT_TRUE(ranNothing(program));
}

TEST(QvhostRun, MissingScriptIsNamed) {
    ProgramRun program;
    const std::string script = program.files().path("none.txt");
    const Outcome outcome = program.run({"run", script});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              "qvhost: cannot read the script " + script + ": No such file or directory\n");
}

TEST(QvhostRun, DirectoryIsNoScript) {
    ProgramRun program;
    const Outcome outcome = program.run({"run", program.files().path("config")});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("cannot read the script " + program.files().path("config")));
    EXPECT_TRUE(ranNothing(program));
}

TEST(QvhostRun, RefusedLevelIsExplainedAndStopsTheScript) {
    ProgramRun program;
    const std::string script = program.script("level 9\nlist\n");
    const Outcome outcome = program.run({"run", script});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "qvhost: " + script +
                               ":1: cannot set the debug level to 9: level must be 0 to 7 (the "
                               "plug-in refused it with 20002)\n");
    EXPECT_EQ(outcome.out, "");
}

TEST(QvhostRun, EveryLevelInRangeIsTaken) {
    ProgramRun program;
    const Outcome outcome = program.run(
        {"run"}, "level 0\nlevel 1\nlevel 2\nlevel 3\nlevel 4\nlevel 5\nlevel 6\nlevel 7\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
}

TEST(QvhostRun, ErrorInARunningScriptFinalisesThePlugin) {
    ProgramRun program;
    const std::string record = program.files().path("record");
    program.setVariable("QVHOST_FAKE_RECORD", record);
    program.setVariable("QVHOST_FAKE", "request fails");
    const Outcome outcome =
        program.run({"run", "--plugin", QVHOST_FAKE_PLUGIN}, "unregister 1\nlist\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("<stdin>:1: cannot unregister service 1"));
    EXPECT_EQ(readFile(record), "initialize\n0201 0a020801\nfinalize\n");
}

TEST(QvhostRun, RegistrationsSurviveTheProcess) {
    ProgramRun program;
    program.run({"run"}, "register 1 a\nregister 2 b\n");
    EXPECT_EQ(program.run({"list", "--offline"}).out, "ID  ADDRESS\n 1  a\n 2  b\n");
}

TEST(QvhostRun, SaysThatNothingIsKeptWithoutAFile) {
    for (const bool isNamed : {false, true}) {
        ProgramRun program;
        std::filesystem::remove(program.configuration());
        const std::string script = "register 1 a\nlist\n";
        const Outcome outcome =
            isNamed ? program.run({"run", program.script(script)}) : program.run({"run"}, script);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.out, "ID  ADDRESS\n 1  a\n");
        EXPECT_EQ(outcome.err,
                  "qvhost: warning: services are not kept: " + program.configuration() +
                      " does not exist (qvhost init makes it)\n");
        EXPECT_EQ(program.run({"list", "--offline"}).out, "no services\n");
    }
}

TEST(QvhostRun, RestartLeavesAWorkingPlugin) {
    ProgramRun program;
    const Outcome outcome = program.run({"run"}, "register 1 a\nrestart\nregister 2 b\nlist\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out, EndsWith(" 2  b\n"));
}

TEST(QvhostRun, StandardInputIsReadWithAndWithoutDash) {
    ProgramRun program;
    const std::string script = "register 2 b\nregister 1 a\nunregister 2\nlist\n";
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"run"}, {"run", "-"}}) {
        const Outcome outcome = program.run(arguments, script);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        EXPECT_EQ(outcome.out, "ID  ADDRESS\n 1  a\n");
    }
}

TEST(QvhostRun, StandardInputIsExecutedLineByLine) {
    ProgramRun program;
    program.start({"run"});
    program.write("register 1 first\nlist\n");
    EXPECT_THAT(program.readUntil("first\n"), HasSubstr(" 1  first\n"));
    program.write("register 2 second\nlist\n");
    EXPECT_THAT(program.readUntil("second\n"), HasSubstr(" 2  second\n"));
    program.write("lst\n");
    const Outcome outcome = program.finish();
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "qvhost: <stdin>:5: unknown command 'lst' (did you mean 'list'?)\n");
}

TEST(QvhostRun, EmptyScriptDoesNothingSuccessfully) {
    ProgramRun program;
    const Outcome outcome = program.run({"run", program.script("")});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST(QvhostRun, CarriageReturnsAndAMissingLastNewlineAreTolerated) {
    ProgramRun program;
    const Outcome outcome = program.run({"run", program.script("# x\r\n\r\nregister 1 a\r\nlist")});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "ID  ADDRESS\n 1  a\n");
}

TEST(QvhostRun, NulByteIsRefusedWithItsLine) {
    ProgramRun program;
    const std::string script = program.script(std::string("list\nregister 1 a\0b\n", 20));
    const Outcome outcome = program.run({"run", script});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, AllOf(HasSubstr(script + ":2: "), HasSubstr("NUL")));
    EXPECT_TRUE(ranNothing(program));
}

TEST(QvhostRun, VeryLongAddressArrivesWhole) {
    ProgramRun program;
    const std::string address(std::size_t{1} << 20, 'x');
    const Outcome outcome =
        program.run({"run", program.script("register 1 " + address + "\nlist\n")});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.out == "ID  ADDRESS\n 1  " + address + "\n");
}

TEST(QvhostRun, VeryLongWrongLineGetsAShortMessage) {
    ProgramRun program;
    const Outcome outcome = program.run({"run"}, std::string(std::size_t{1} << 20, 'x'));
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, SizeIs(Lt(300)));
}

TEST(QvhostRun, TerminalEscapesComeOutEscaped) {
    ProgramRun program;
    const std::string escape = "register 1 \x1b]0;owned\x07\xff\nlist\n";
    EXPECT_EQ(program.run({"run"}, escape).out, "ID  ADDRESS\n 1  \\x1b]0;owned\\x07\\xff\n");
    EXPECT_EQ(json::parse(program.run({"run", "--json"}, escape).out).at(0).at("address"),
              "\x1b]0;owned\x07\xef\xbf\xbd");
    const Outcome wrong = program.run({"run"}, "\x1b[2Jlist\n");
    EXPECT_THAT(wrong.err, AllOf(HasSubstr("\\x1b[2Jlist"), Not(HasSubstr("\x1b"))));
}

TEST(QvhostRun, JsonPrintsOneArrayALine) {
    ProgramRun program;
    const Outcome outcome = program.run({"run", "--json"}, "list\nregister 1 a\nlist\n");
    EXPECT_EQ(outcome.out, "[]\n[{\"id\":1,\"address\":\"a\"}]\n");
}

}  // namespace
}  // namespace qv::host
