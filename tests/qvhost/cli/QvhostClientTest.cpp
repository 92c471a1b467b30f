// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "qvhost/PseudoTerminal.h"
#include "qvhost/cli/QvhostClient.h"
#include "support/FileModes.h"

namespace qv::host {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

TEST_F(QvhostClient, RegistersListsAndUnregisters) {
    EXPECT_EQ(done({"list"}), "no services\n");
    EXPECT_EQ(done({"register", "2", "b", "1", "/run/a sock", "0x10", "c"}), "");
    EXPECT_EQ(done({"list"}), "ID  ADDRESS\n 1  /run/a sock\n 2  b\n16  c\n");
    EXPECT_EQ(done({"unregister", "2", "16", "77"}), "");
    EXPECT_EQ(done({"list"}), "ID  ADDRESS\n 1  /run/a sock\n");
}

TEST_F(QvhostClient, TakesNegativeIdentifiersAndAddressesLikeOptions) {
    done({"register", "-1", "a", "-2147483648", "b"});
    done({"register", "--", "5", "--json"});
    EXPECT_EQ(done({"list", "--csv"}), "id,address\n-2147483648,b\n-1,a\n5,--json\n");
    done({"unregister", "-1", "5"});
    EXPECT_EQ(done({"list", "--csv"}), "id,address\n-2147483648,b\n");
}

TEST_F(QvhostClient, TakesAnyWordsAfterALoneDoubleDash) {
    done({"register", "1", "a", "2", "--", "--json", "-3", "--", "4", "list"});
    EXPECT_EQ(done({"list"}), "ID  ADDRESS\n-3  --\n 1  a\n 2  --json\n 4  list\n");
    done({"unregister", "1", "--", "-3", "2"});
    EXPECT_EQ(done({"list"}), "ID  ADDRESS\n 4  list\n");
}

TEST_F(QvhostClient, TakesAddressesAsTheyAre) {
    done({"register", "1", "[a,b]", "2", "++", "3", "[]", "4", "{}", "5", "%%", "6", "\"q\""});
    EXPECT_EQ(done({"list"}),
              "ID  ADDRESS\n 1  [a,b]\n 2  ++\n 3  []\n 4  {}\n 5  %%\n 6  \"q\"\n");
}

TEST_F(QvhostClient, WrongUseReachesNoHost) {
    const std::vector<std::pair<Arguments, std::string>> wrong = {
        {{"register", "1"}, "register needs an address after each identifier"},
        {{"register", "1", "a", "2"}, "register needs an address after each identifier"},
        {{"register", "1", "a", "x", "b"}, "identifier must be a number"},
        {{"register"}, "register needs ID-ADDRESS (see qvhost register --help)"},
        {{"register", "1", "a", "2", "b\xff"}, "the address of 2 is not UTF-8"},
        {{"register", "1", ""}, "the address of 1 is empty"},
        {{"register", "1", "a", "2", "b", "0x1", "a"}, "identifier 1 occurs twice"},
        {{"unregister", "-1", "1", "-1"}, "identifier -1 occurs twice"},
        {{"unregister"}, "unregister needs ID (see qvhost unregister --help)"},
        {{"unregister", "1", "2147483648"}, "identifier '2147483648' is out of range"},
        {{"level"}, "level needs N (see qvhost level --help)"},
        {{"level", "high"}, "a level is a number from 0 to 7, not 'high'"},
        {{"level", "8"}, "a level is a number from 0 to 7, not '8'"},
        {{"level", "-1"}, "a level is a number from 0 to 7, not '-1'"},
        {{"ping", "more"}, "'more' is one argument too many (see qvhost ping --help)"},
        {{"ping", "--", "-x"}, "'-x' is one argument too many (see qvhost ping --help)"},
        {{"ping", "-x"}, "unknown option '-x' (see qvhost ping --help)"},
        {{"list", "--json=x"}, "--json takes no value (see qvhost list --help)"},
        {{"list", "--csv", "--json"}, "exclude each other"},
        {{"list", "--match", ""}, "--match: the name is empty (see qvhost list --help)"},
        {{"get"}, "get needs ID (see qvhost get --help)"},
        {{"get", "7", "x"}, "identifier must be a number"},
        {{"get", "7", "7"}, "identifier 7 occurs twice"},
        {{"wait", "7", "7"}, "identifier 7 occurs twice"},
        {{"wait", "7", "--timeout", "0"}, "--timeout: a number of seconds from 0.001"},
        {{"watch", "7", "7"}, "identifier 7 occurs twice"},
        {{"list", "--offline"}, "--offline asks no resident host"},
        {{"list", "--config-dir", "d"}, "--config-dir needs --offline"},
        {{"list", "--log-dir", "d"}, "--log-dir"},
        {{"--plugin", "p", "list"}, "list takes no --plugin"},
        {{"--config-dir", "d", "register", "1", "a"}, "register takes no --config-dir"},
        {{"--json", "ping"}, "ping takes no --json"},
        {{"info"}, "info takes no --socket"},
        {{"serve", "--timeout", "1"}, "unknown option '--timeout'"},
        {{"status", "--timeout", "0"}, "a number of seconds from 0.001 to 1000000 is needed"},
        {{"status", "--timeout", "soon"}, "a number of seconds"},
        {{"status", "--timeout", ""}, "a number of seconds"},
        {{"sync", "--timeout", "1s"}, "a number of seconds"},
        {{"sync", "--json"}, "--json"},
        {{"sync", "1"}, "'1' is one argument too many"},
        {{"import"}, "import needs FILE (see qvhost import --help)"},
        {{"import", "-", "--format", "xml"}, "--format: csv or json is needed, not 'xml'"},
        {{"export", "--formt", "csv"}, "did you mean '--format'?"},
        {{"regster", "1", "a"}, "did you mean 'register'?"},
    };
    for (const auto& [arguments, message] : wrong) {
        const ProgramOutcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(outcome.out, "") << testing::PrintToString(arguments);
        EXPECT_THAT(outcome.err, AllOf(StartsWith("qvhost: "), HasSubstr(message)));
    }
    EXPECT_EQ(done({"list"}), "no services\n");
}

TEST_F(QvhostClient, ListShowsTheSameAsOfflineAfterwards) {
    done({"register", "1", "a", "2", "b"});
    const std::string listing = done({"list"});
    host_.signal(SIGTERM);
    EXPECT_EQ(host_.wait(), 0);
    EXPECT_EQ(program_.run({"list", "--offline", "--config-dir", host_.files().path("config")}).out,
              listing);
}

TEST_F(QvhostClient, ListMatchesWholeAddresses) {
    done({"register", "1", "tcp://a:1", "2", "/run/.tcp", "3", "xtcp://b", "4", "TCP://c"});
    EXPECT_EQ(done({"list", "--match", "tcp:*"}), "ID  ADDRESS\n 1  tcp://a:1\n");
    EXPECT_EQ(done({"list", "--match", "*tcp", "--csv"}), "id,address\n2,/run/.tcp\n");
    EXPECT_EQ(done({"list", "--match", "[Tt]??://?"}), "ID  ADDRESS\n 4  TCP://c\n");
    EXPECT_EQ(done({"list", "--match", "tcp", "--json"}), "[]\n");
    done({"sync"});
    EXPECT_EQ(program_
                  .run({"list", "--offline", "--config-dir", host_.files().path("config"),
                        "--match", "/*"})
                  .out,
              "ID  ADDRESS\n 2  /run/.tcp\n");
}

TEST_F(QvhostClient, SetsTheLevelOfTheHostsLog) {
    for (const char* level : {"0", "1", "2", "3", "4", "5", "6"}) {
        EXPECT_EQ(done({"level", level}), "");
    }
    done({"register", "--sync", "1", "/run/quiet.sock"});
    EXPECT_THAT(readFile(host_.files().path("log/namingService.log")),
                Not(HasSubstr("/run/quiet.sock")));
    EXPECT_EQ(done({"level", "7"}), "");
    done({"register", "--sync", "1", "/run/verbose.sock"});
    EXPECT_THAT(readFile(host_.files().path("log/namingService.log")),
                HasSubstr("/run/verbose.sock"));
}

TEST_F(QvhostClient, PingSaysHowLongItTook) {
    EXPECT_THAT(done({"ping"}),
                MatchesRegex("pong from " + host_.socket() + ": time=[0-9]+\\.[0-9]{3} ms\n"));
}

TEST(QvhostClientAlone, HostKeepsServicesInTheFileThatInitMade) {
    HostProcess host;
    const std::string directory = host.files().path("new");
    ProgramRun program;
    EXPECT_EQ(program.run({"init", "--config-dir", directory}).status, 0);
    const std::vector<std::string> options = {"--config-dir", directory};
    ASSERT_TRUE(host.start(options)) << host.errors();
    EXPECT_EQ(program.run({"register", "1", "a", "--socket", host.socket()}).status, 0);
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(tests::modeOf(directory + "/namingService.conf.plist"), 0600U);
    ASSERT_TRUE(host.start(options)) << host.errors();
    EXPECT_EQ(program.run({"list", "--socket", host.socket()}).out, "ID  ADDRESS\n 1  a\n");
}

TEST(QvhostClientAlone, SaysThatThereIsNoHostAndWhatToDo) {
    for (const Arguments& arguments : std::vector<Arguments>{{"ping"},
                                                             {"list"},
                                                             {"get", "1"},
                                                             {"wait", "1"},
                                                             {"watch"},
                                                             {"register", "1", "a"},
                                                             {"unregister", "1"},
                                                             {"level", "1"},
                                                             {"status"},
                                                             {"status", "--json"},
                                                             {"sync"},
                                                             {"export"}}) {
        ProgramRun program;
        program.setVariable("QV_RUN_DIR", program.files().path("run"));
        const ProgramOutcome outcome = program.run(arguments);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, "qvhost: cannot reach the host at " + program.files().path("run") +
                                   "/namingService.sock: No such file or directory (is `qvhost "
                                   "serve` running?)\n");
    }
}

TEST_F(QvhostClient, FindsTheHostByTheEnvironment) {
    done({"register", "1", "a"});
    std::filesystem::create_directory(path("run"));
    std::filesystem::create_symlink(host_.socket(), path("run/namingService.sock"));
    program_.setVariable("QV_RUN_DIR", path("run"));
    EXPECT_EQ(program_.run({"list"}).out, "ID  ADDRESS\n 1  a\n");
}

TEST_F(QvhostClient, ImportsEitherFormatFromAFileOrStandardInput) {
    EXPECT_EQ(done({"import", program_.files().write("a.csv", "id,address\n1,a\n2,\"b\nc\"\n")}),
              "registered 2 services\n");
    EXPECT_EQ(done({"import", "-"}, "[{\"id\":3,\"address\":\"d\"}]"), "registered 1 service\n");
    EXPECT_EQ(done({"import", "-", "--format", "csv"}, "id,address\n"), "registered 0 services\n");
    EXPECT_EQ(done({"list", "--json"}),
              "[{\"id\":1,\"address\":\"a\"},{\"id\":2,\"address\":\"b\\nc\"},"
              "{\"id\":3,\"address\":\"d\"}]\n");
}

TEST_F(QvhostClient, ImportsTheExample) {
    const std::string example = readFile(QVHOST_EXAMPLES_DIR "/services.csv");
    EXPECT_EQ(done({"import", QVHOST_EXAMPLES_DIR "/services.csv"}), "registered 19 services\n");
    EXPECT_EQ(done({"list", "--csv"}), example);
}

TEST_F(QvhostClient, LongestAddressArrivesWhole) {
    const std::string csv = "id,address\n1," + std::string(4096, 'x') + "\n";
    done({"import", "-"}, csv);
    EXPECT_TRUE(done({"export"}) == csv);
}

TEST_F(QvhostClient, ImportOfAFileWithAMistakeRegistersNothing) {
    const std::string file = program_.files().write("a.csv", "id,address\n1,a\nx,b\n3,c\n1,d\n");
    const ProgramOutcome outcome = run({"import", file});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("qvhost: " + file + ":3: identifier must be a number"),
                                   HasSubstr("qvhost: " + file +
                                             ":5: identifier 1 occurs twice, first in line 2\n")));
    EXPECT_THAT(run({"import", "-"}, "[{\"id\":1}]").err, HasSubstr("qvhost: <stdin>:1: "));
    EXPECT_EQ(done({"list"}), "no services\n");
    EXPECT_EQ(run({"import", path("none")}).status, 1);
    EXPECT_THAT(run({"import", path("none")}).err,
                HasSubstr("cannot read " + path("none") + ": No such file or directory"));
}

std::string manyServices(int count) {
    std::string csv = "id,address\n";
    for (int id = 1; id <= count; ++id) {
        csv += std::to_string(id) + ",/run/" + std::to_string(id) + ".sock\n";
    }
    return csv;
}

TEST_F(QvhostClient, ImportsManyServicesAndExportsThemAgain) {
    const std::string csv = manyServices(2500);
    EXPECT_EQ(done({"import", "-"}, csv), "registered 2500 services\n");
    EXPECT_EQ(done({"export"}), csv);
    EXPECT_EQ(done({"export", "-", "--format", "json"}), done({"list", "--json"}));
}

TEST_F(QvhostClient, ImportShowsItsProgressOnATerminal) {
    const PseudoTerminal terminal;
    program_.setErrors(terminal.path());
    EXPECT_EQ(run({"import", "-"}, manyServices(2500)).status, 0);
    const std::string shown = terminal.readUntil("2500/2500\r\n");
    EXPECT_THAT(shown, AllOf(HasSubstr("\r[################                        ] 1000/2500"),
                             HasSubstr("] 2000/2500"),
                             HasSubstr("\r[########################################] 2500/2500")));
}

TEST_F(QvhostClient, ImportSaysHowFarItCame) {
    ASSERT_EQ(done({"import", "-"}, "id,address\n1,a\n"), "registered 1 service\n");
    HostProcess narrow;
    ASSERT_TRUE(narrow.start({"--max-message", "40000"}));
    std::string csv = manyServices(1000);
    for (int id = 5000; id < 5011; ++id) {
        csv += std::to_string(id) + ',' + std::string(4096, 'x') + "\n";
    }
    const ProgramOutcome outcome = program_.run({"import", "-", "--socket", narrow.socket()}, csv);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, AllOf(StartsWith("qvhost: cannot register 11 services: "),
                                   HasSubstr("; 1000 of 1011 are registered\n")));
}

TEST_F(QvhostClient, ExportsToAFileThatWasNotThere) {
    done({"register", "1", "a", "2", "b"});
    EXPECT_EQ(done({"export", path("new/a.csv")}), "");
    EXPECT_EQ(readFile(path("new/a.csv")), "id,address\n1,a\n2,b\n");
    EXPECT_EQ(tests::modeOf(path("new/a.csv")), 0600U);
    done({"export", path("a.json")});
    EXPECT_EQ(readFile(path("a.json")), done({"list", "--json"}));
    done({"export", path("b.json"), "--format", "csv"});
    EXPECT_EQ(readFile(path("b.json")), done({"list", "--csv"}));

    program_.files().write("there", "mine");
    const ProgramOutcome outcome = run({"export", path("there")});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("cannot make " + path("there") + ": File exists"));
    EXPECT_EQ(readFile(path("there")), "mine");
}

TEST_F(QvhostClient, HeadingStandsOutOnATerminalThatCanAndMay) {
    done({"register", "1", "a"});
    struct Case {
        std::vector<std::pair<std::string, std::string>> variables;
        const char* heading;
    };
    const Case cases[] = {{{{"TERM", "xterm"}}, "\x1b[1mID  ADDRESS\x1b[0m\r\n"},
                          {{{"TERM", "xterm"}, {"NO_COLOR", ""}}, "\x1b[1mID  ADDRESS\x1b[0m\r\n"},
                          {{{"TERM", "xterm"}, {"NO_COLOR", "1"}}, "ID  ADDRESS\r\n"},
                          {{{"TERM", "dumb"}}, "ID  ADDRESS\r\n"},
                          {{}, "ID  ADDRESS\r\n"}};
    for (const Case& one : cases) {
        const PseudoTerminal terminal;
        ProgramRun program;
        for (const auto& [name, value] : one.variables) {
            program.setVariable(name, value);
        }
        program.setOutput(terminal.path().c_str());
        EXPECT_EQ(program.run(withSocket({"list"})).status, 0);
        EXPECT_EQ(terminal.readUntil("a\r\n"), one.heading + std::string(" 1  a\r\n"));
    }
}

TEST_F(QvhostClient, TableFitsTheTerminal) {
    done({"register", "1", "123456789", "2", "123456789\xc3\xa9", "3", "12345678\u00e90", "4",
          "12345678\u00e9"});
    const std::string whole =
        "ID  ADDRESS\n 1  123456789\n 2  123456789\xc3\xa9\n"
        " 3  12345678\u00e90\n 4  12345678\u00e9\n";
    EXPECT_EQ(done({"list"}), whole);
    const PseudoTerminal terminal;
    terminal.setWidth(13);
    program_.setOutput(terminal.path().c_str());
    run({"list"});
    EXPECT_EQ(terminal.readUntil("\u00e9\r\n"),
              "ID  ADDRESS\r\n 1  123456789\r\n 2  12345678\xe2\x80\xa6\r\n"
              " 3  12345678\xe2\x80\xa6\r\n 4  12345678\u00e9\r\n");
    terminal.setWidth(5);
    run({"list", "--csv"});
    EXPECT_THAT(terminal.readUntil("4,12345678\u00e9\r\n"), HasSubstr("1,123456789\r\n"));
}

TEST_F(QvhostClient, CsvDrivesNoTerminal) {
    done({"register", "1", "\x1b[31m"});
    const PseudoTerminal terminal;
    program_.setOutput(terminal.path().c_str());
    run({"list", "--csv"});
    EXPECT_THAT(terminal.readUntil("31m"), AllOf(EndsWith("1,\\x1b[31m"), Not(HasSubstr("\x1b"))));
}

TEST_F(QvhostClient, OutputThatCannotBeWrittenIsAFailure) {
    done({"register", "1", "a"});
    program_.setOutput("/dev/full");
    for (const Arguments& arguments :
         std::vector<Arguments>{{"list"}, {"get", "1"}, {"watch"}, {"export"}, {"ping"}}) {
        const ProgramOutcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.err, HasSubstr("cannot write to standard output"));
    }
}

// Descriptor 1 would be the connection to the host, and the listing would be sent there.
TEST_F(QvhostClient, ClosedStandardOutputIsAFailure) {
    program_.setOutput(nullptr);
    const ProgramOutcome outcome = run({"list"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("cannot write to standard output"));
}

TEST_F(QvhostClient, PipeThatNobodyReadsEndsTheProgramSilently) {
    program_.start(withSocket({"import", "-"}));
    program_.closeOutput();
    program_.write("id,address\n1,a\n");
    const ProgramOutcome outcome = program_.finish();
    EXPECT_EQ(outcome.status, 128 + SIGPIPE);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(done({"list"}), "ID  ADDRESS\n 1  a\n");
}

TEST_F(QvhostClient, RefusalIsToldInTheHostsWords) {
    HostProcess full;
    ASSERT_TRUE(full.start({"--max-message", "10"}));
    const ProgramOutcome outcome =
        program_.run({"--socket", full.socket(), "register", "1", "a long address"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, StartsWith("qvhost: cannot register service 1: the host refused: "));
}

}  // namespace
}  // namespace qv::host
