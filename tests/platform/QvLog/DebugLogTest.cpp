// SPDX-License-Identifier: Apache-2.0

// Tests records: their contents, their levels, and the escaping that keeps each text in its own
// record.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "OpenLog.h"
#include "support/CancelledThread.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::Optional;

constexpr std::size_t kLongestText = 8 * 1024 - 1;

class DebugLog : public testing::Test {
  protected:
    const TemporaryDirectory directory;
    const std::string path = directory.path("naming.log");
};

TEST_F(DebugLog, RecordNamesTimeProcessThreadLevelAndModule) {
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 7, "%s %d", "registerServices in", 3);

    const std::regex line(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (\d+)/(\d+) )"
                          R"(debug namingService: registerServices in 3\n)");
    const std::string content = contentOf(path).value();
    std::smatch match;
    ASSERT_TRUE(std::regex_match(content, match, line)) << content;
    EXPECT_EQ(match[1], std::to_string(::getpid()));
}

TEST_F(DebugLog, RecordsOfDifferentThreadsHaveDifferentIds) {
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 7, "here");
    std::thread([&log] { LorxWriteDbgLog(log.get(), 7, "there"); }).join();

    const auto lines = linesOf(path);
    ASSERT_EQ(lines.size(), 2U);
    const auto ids = [](const std::string& line) {
        return line.substr(25, line.find(' ', 25) - 25);
    };
    EXPECT_NE(ids(lines[0]), ids(lines[1]));
}

TEST_F(DebugLog, EachLevelHasAName) {
    const Handle log = openLog(path);
    for (int level = 0; level <= 7; ++level) {
        LorxWriteDbgLog(log.get(), level, "text");
    }
    std::vector<std::string> names;
    for (const std::string& line : linesOf(path)) {
        const auto begin = line.find(' ', 25) + 1;
        names.push_back(line.substr(begin, line.find(' ', begin) - begin));
    }
    EXPECT_THAT(names,
                ElementsAre("emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"));
}

TEST_F(DebugLog, OnlyLevelsUpToTheThresholdAreEnabled) {
    const Handle log = openLog(path, 4);
    for (int level = 0; level <= 4; ++level) {
        EXPECT_NE(LorxIsEnableLog(log.get(), level), 0) << level;
    }
    for (const int level : {-1, -100, 5, 7, 8, 100}) {
        EXPECT_EQ(LorxIsEnableLog(log.get(), level), 0) << level;
    }
}

TEST_F(DebugLog, RecordsPastTheThresholdAreNotWritten) {
    const Handle log = openLog(path, 4);
    for (const int level : {-1, 4, 5, 7, 8}) {
        LorxWriteDbgLog(log.get(), level, "%d", level);
    }
    EXPECT_THAT(textsOf(path), ElementsAre("4"));
}

TEST_F(DebugLog, ThresholdCanBeSet) {
    const Handle log = openLog(path, 4);
    LorxSetDbgLogLevel(log.get(), 7);
    EXPECT_NE(LorxIsEnableLog(log.get(), 7), 0);
    LorxSetDbgLogLevel(log.get(), 0);
    EXPECT_EQ(LorxIsEnableLog(log.get(), 1), 0);
    EXPECT_NE(LorxIsEnableLog(log.get(), 0), 0);
}

TEST_F(DebugLog, ThresholdOutOfRangeIsIgnored) {
    const Handle log = openLog(path, 4);
    for (const int level : {-1, 8}) {
        LorxSetDbgLogLevel(log.get(), level);
        EXPECT_NE(LorxIsEnableLog(log.get(), 4), 0);
        EXPECT_EQ(LorxIsEnableLog(log.get(), 5), 0);
    }
}

TEST_F(DebugLog, ThresholdAtOpeningIsLimitedToTheRange) {
    const Handle most = openLog(path, 100);
    EXPECT_NE(LorxIsEnableLog(most.get(), 7), 0);
    EXPECT_EQ(LorxIsEnableLog(most.get(), 8), 0);
    const Handle least = openLog(path, -100);
    EXPECT_NE(LorxIsEnableLog(least.get(), 0), 0);
    EXPECT_EQ(LorxIsEnableLog(least.get(), 1), 0);
}

TEST_F(DebugLog, NullHandleEnablesAndWritesNothing) {
    EXPECT_EQ(LorxIsEnableLog(nullptr, 0), 0);
    LorxWriteDbgLog(nullptr, 0, "%s", "nowhere");
    LorxSetDbgLogLevel(nullptr, 7);
    LorxReleaseDbgLog(nullptr);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST_F(DebugLog, NullFormatWritesNothing) {
    const Handle log = openLog(path);
    const char* const none = nullptr;
    LorxWriteDbgLog(log.get(), 0, none);
    EXPECT_THAT(contentOf(path), Optional(std::string()));
}

TEST_F(DebugLog, NullModuleIsAnEmptyName) {
    const Handle log = openLog(path, 7, nullptr);
    LorxWriteDbgLog(log.get(), 0, "text");
    EXPECT_THAT(contentOf(path), Optional(EndsWith(" emerg : text\n")));
}

TEST_F(DebugLog, ModuleIsEscaped) {
    const Handle log = openLog(path, 7, "x\n1970");
    LorxWriteDbgLog(log.get(), 6, "text");
    EXPECT_THAT(contentOf(path), Optional(EndsWith(" info x\\n1970: text\n")));
}

TEST_F(DebugLog, LongModuleIsCutBetweenCharacters) {
    const Handle log = openLog(path, 7, (std::string(63, 'm') + "\u00e9" + "more").c_str());
    LorxWriteDbgLog(log.get(), 6, "text");
    EXPECT_THAT(contentOf(path), Optional(EndsWith(" info " + std::string(63, 'm') + ": text\n")));
}

TEST_F(DebugLog, FormatInTheTextIsNotInterpreted) {
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "%s", "%s %n {} %v %Y");
    EXPECT_THAT(textsOf(path), ElementsAre("%s %n {} %v %Y"));
}

TEST_F(DebugLog, LongestTextIsNotCut) {
    const Handle log = openLog(path);
    const std::string text(kLongestText, 'x');
    LorxWriteDbgLog(log.get(), 6, "%s", text.c_str());
    EXPECT_THAT(textsOf(path), ElementsAre(text));
}

TEST_F(DebugLog, LongerTextIsCutAndNamesItsLength) {
    const Handle log = openLog(path);
    const std::string text(kLongestText + 1, 'x');
    LorxWriteDbgLog(log.get(), 6, "%s", text.c_str());
    LorxWriteDbgLog(log.get(), 6, "%s%1000000d", text.c_str(), 1);

    const std::string kept(kLongestText, 'x');
    EXPECT_THAT(textsOf(path),
                ElementsAre(kept + " ... (8192 bytes)", kept + " ... (1008192 bytes)"));
}

TEST_F(DebugLog, CutDoesNotSplitEscapesOrCharacters) {
    const Handle log = openLog(path);
    std::vector<std::string> expected;
    // Each character begins `within` bytes before the limit and ends beyond it.
    for (const std::string character : {"\u00e9", "\u20ac", "\U0001f600"}) {
        for (std::size_t within = 1; within < character.size(); ++within) {
            const std::string kept(kLongestText - within, 'x');
            const std::string text = kept + character;
            LorxWriteDbgLog(log.get(), 6, "%s!!!!", text.c_str());
            expected.push_back(kept + " ... (" + std::to_string(text.size() + 4) + " bytes)");
        }
        const std::string kept = std::string(kLongestText - character.size(), 'x') + character;
        LorxWriteDbgLog(log.get(), 6, "%s!", kept.c_str());
        expected.push_back(kept + " ... (8192 bytes)");
    }
    std::string escapes;
    for (std::size_t count = 0; count < kLongestText; ++count) {
        escapes += "\\x01";
    }
    LorxWriteDbgLog(log.get(), 6, "%s", std::string(10000, '\x01').c_str());
    expected.push_back(escapes + " ... (10000 bytes)");

    EXPECT_EQ(textsOf(path), expected);
}

TEST_F(DebugLog, CutKeepsInvalidBytesEscaped) {
    const Handle log = openLog(path);
    const std::string text = std::string(kLongestText - 4, 'x') + "\x80\x80\x80\x80";
    LorxWriteDbgLog(log.get(), 6, "%s!", text.c_str());
    EXPECT_THAT(textsOf(path), ElementsAre(std::string(kLongestText - 4, 'x') +
                                           "\\x80\\x80\\x80\\x80 ... (8192 bytes)"));
}

TEST_F(DebugLog, ArgumentThatCannotBeConvertedLeavesTheFormat) {
    const Handle log = openLog(path);
    const wchar_t invalid[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    LorxWriteDbgLog(log.get(), 6, "name %ls\n", invalid);
    EXPECT_THAT(textsOf(path), ElementsAre("name %ls\\n ... (not formatted)"));
}

TEST_F(DebugLog, ErrnoIsKept) {
    const Handle log = openLog(path);
    const Handle full = openLog("/dev/full");
    errno = ENOENT;
    LorxWriteDbgLog(log.get(), 6, "text");
    EXPECT_EQ(errno, ENOENT);
    LorxWriteDbgLog(full.get(), 6, "text");
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(DebugLog, ThresholdCanBeSetWhileOthersWrite) {
    const Handle log = openLog(path);
    std::thread writer([&log] {
        for (int record = 0; record < 200; ++record) {
            if (LorxIsEnableLog(log.get(), 7) != 0) {
                LorxWriteDbgLog(log.get(), 7, "text");
            }
        }
    });
    for (int round = 0; round < 200; ++round) {
        LorxSetDbgLogLevel(log.get(), round % 8);
    }
    writer.join();
    LorxSetDbgLogLevel(log.get(), 7);
    LorxWriteDbgLog(log.get(), 7, "last");
    EXPECT_EQ(textsOf(path).back(), "last");
}

TEST_F(DebugLog, CancelledThreadWritesItsRecordBeforeItEnds) {
    const Handle log = openLog(path);
    EXPECT_TRUE(isCancelledAfter([&] { LorxWriteDbgLog(log.get(), 7, "the last words"); }));
    LorxWriteDbgLog(log.get(), 7, "of another thread");
    EXPECT_THAT(textsOf(path), ElementsAre("the last words", "of another thread"));
}

TEST_F(DebugLog, CancelledThreadOpensAndClosesALogBeforeItEnds) {
    EXPECT_TRUE(isCancelledAfter([&] {
        void* const log = LorxOpenDbgLog(path.c_str(), "namingService", 7);
        LorxWriteDbgLog(log, 7, "one");
        LorxReleaseDbgLog(log);
    }));
    EXPECT_THAT(textsOf(path), ElementsAre("one"));
}

}  // namespace
}  // namespace qv::tests
