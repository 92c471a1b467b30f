#include "Session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "FakePluginControl.h"
#include "PluginError.h"
#include "ScriptError.h"
#include "TestFiles.h"

namespace qv::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

struct FileCloser {
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};

class SessionTest : public testing::Test {
  protected:
    SessionTest() : plugin_(QVHOST_FAKE_PLUGIN) {
        plugin_.initialize();
        openOutput(files_.path("out"));
    }

    void openOutput(const std::string& path) { out_.reset(std::fopen(path.c_str(), "we")); }

    Session session(Format format = Format::Table) { return {plugin_, format, out_.get()}; }

    LineReader lines(const std::string& text) const {
        return LineReader::openFile(files_.write("script", text));
    }

    std::string place(int line) const { return files_.path("script") + ":" + std::to_string(line); }

    FakePluginControl control_;
    TestFiles files_;
    Plugin plugin_;
    std::unique_ptr<std::FILE, FileCloser> out_;
};

TEST_F(SessionTest, ReadScriptGivesEveryCommandItsPlace) {
    std::vector<std::string> problems;
    const auto script = Session::readScript(lines("# x\nlevel 3\n\nlist"), problems);
    EXPECT_THAT(problems, IsEmpty());
    ASSERT_THAT(script, SizeIs(2));
    EXPECT_EQ(script[0].place, place(2));
    EXPECT_EQ(script[0].command.number, 3);
    EXPECT_EQ(script[1].place, place(4));
    EXPECT_EQ(script[1].command.verb, Command::Verb::List);
}

TEST_F(SessionTest, ReadScriptReportsEveryWrongLine) {
    std::vector<std::string> problems;
    Session::readScript(lines("lst\nlist\nlevel\n"), problems);
    EXPECT_THAT(problems, ElementsAre(HasSubstr(place(1)), HasSubstr(place(3))));
}

TEST_F(SessionTest, ReadScriptGivesUpOnAFileThatIsNoScript) {
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        text += "nonsense\n";
    }
    std::vector<std::string> problems;
    Session::readScript(lines(text), problems);
    EXPECT_THAT(problems, SizeIs(11));
    EXPECT_THAT(problems.back(), HasSubstr("more is wrong"));
}

TEST_F(SessionTest, RunLinesExecutesUpToTheWrongLine) {
    try {
        session().runLines(lines("level 1\nlevle 2\nlevel 3\n"));
        FAIL() << "accepted";
    } catch (const ScriptError& error) {
        EXPECT_THAT(error.what(), HasSubstr(place(2)));
    }
    EXPECT_THAT(control_.record(), ElementsAre("initialize", "0102 08021001"));
}

TEST_F(SessionTest, PluginErrorNamesItsLine) {
    FakePluginControl::behave("request throws text");
    std::vector<std::string> problems;
    const auto script = Session::readScript(lines("\nregister 4 a\nlist\n"), problems);
    try {
        session().runScript(script);
        FAIL() << "succeeded";
    } catch (const PluginError& error) {
        EXPECT_EQ(error.what(), place(2) +
                                    ": cannot register service 4: the plug-in failed: fail to get "
                                    "the lock");
    }
    EXPECT_THAT(control_.record(), SizeIs(2));
}

TEST_F(SessionTest, RestartFinalisesAndInitialisesAgain) {
    session().runLines(lines("restart\n"));
    EXPECT_THAT(control_.record(), ElementsAre("initialize", "finalize", "initialize"));
}

TEST_F(SessionTest, ListIsThereAsSoonAsItIsExecuted) {
    session().runLines(lines("list\n"));
    EXPECT_EQ(readFile(files_.path("out")), "ID  ADDRESS\n 5  a\n 6  b\n");
}

TEST_F(SessionTest, EveryListPrintsAnArrayOfItsOwn) {
    const std::string array = R"([{"id":5,"address":"a"},{"id":6,"address":"b"}])";
    session(Format::Json).runLines(lines("list\nlist\n"));
    EXPECT_EQ(readFile(files_.path("out")), array + "\n" + array + "\n");
}

TEST_F(SessionTest, OutputThatCannotBeWrittenStopsTheScript) {
    openOutput("/dev/full");
    if (out_ == nullptr) {
        GTEST_SKIP() << "no /dev/full here";
    }
    EXPECT_THROW(session().runLines(lines("list\nlevel 1\n")), std::system_error);
    EXPECT_THAT(control_.record(), ElementsAre("initialize", "0202 ", "answer", "free"));
}

}  // namespace
}  // namespace qv::host
