#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "QvLog.h"
#include "support/FileModes.h"
#include "support/TemporaryDirectory.h"

namespace {

using qv::tests::modeOf;
using qv::tests::TemporaryDirectory;
using qv::tests::UmaskGuard;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t maximalFileSize = 10UL * 1024 * 1024;
constexpr std::size_t longestText = 8 * 1024 - 1;

using Handle = std::unique_ptr<void, decltype(&LorxReleaseDbgLog)>;

Handle openLog(const std::string& path, int level = 7, const char* module = "namingService") {
    return {LorxOpenDbgLog(path.c_str(), module, level), LorxReleaseDbgLog};
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> linesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The text of a record of the module namingService; "malformed: " and the line when it is none.
std::string textOf(const std::string& line) {
    static const std::regex head(
        R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \d+/\d+ )"
        R"((emerg|alert|crit|err|warning|notice|info|debug) namingService: )");
    // Not on all of the line: the library's matcher takes stack for every character.
    const std::string beginning = line.substr(0, 120);
    std::smatch match;
    if (!std::regex_search(beginning, match, head, std::regex_constants::match_continuous)) {
        return "malformed: " + line;
    }
    return line.substr(static_cast<std::size_t>(match.length()));
}

std::vector<std::string> textsOf(const std::string& path) {
    std::vector<std::string> texts;
    for (const std::string& line : linesOf(path)) {
        texts.push_back(textOf(line));
    }
    return texts;
}

std::set<std::string> namesIn(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

// Leaves no room for another record in the file.
void fill(const std::string& path) {
    std::filesystem::resize_file(path, maximalFileSize - 1);
}

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
    const std::string content = contentOf(path);
    std::smatch match;
    ASSERT_TRUE(std::regex_match(content, match, line)) << content;
    EXPECT_EQ(match[1], std::to_string(::getpid()));
}

TEST_F(DebugLog, ThreadsAreToldApart) {
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

TEST_F(DebugLog, LevelsHaveTheirNames) {
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

TEST_F(DebugLog, RecordIsInTheFileWhenTheCallReturns) {
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "one");
    EXPECT_THAT(textsOf(path), ElementsAre("one"));
    LorxWriteDbgLog(log.get(), 6, "two");
    EXPECT_THAT(textsOf(path), ElementsAre("one", "two"));
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

TEST_F(DebugLog, ThresholdToOpenWithIsTakenIntoRange) {
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
    EXPECT_THAT(namesIn(directory.path()), IsEmpty());
}

TEST_F(DebugLog, NullFormatWritesNothing) {
    const Handle log = openLog(path);
    const char* const none = nullptr;
    LorxWriteDbgLog(log.get(), 0, none);
    EXPECT_EQ(contentOf(path), "");
}

TEST_F(DebugLog, NullModuleIsAnEmptyName) {
    const Handle log = openLog(path, 7, nullptr);
    LorxWriteDbgLog(log.get(), 0, "text");
    EXPECT_THAT(contentOf(path), testing::EndsWith(" emerg : text\n"));
}

TEST_F(DebugLog, ControlCharactersAreEscaped) {
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "%s", "a\nb\rc\td\x1b[31m\x7f");
    EXPECT_THAT(textsOf(path), ElementsAre("a\\nb\\rc\\td\\x1b[31m\\x7f"));
}

TEST_F(DebugLog, C1ControlsAndInvalidUtf8AreEscaped) {
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "%s", "\u009b2J \xff \xc0\x8a \xe2\x82");
    EXPECT_THAT(textsOf(path), ElementsAre("\\xc2\\x9b2J \\xff \\xc0\\x8a \\xe2\\x82"));
}

TEST_F(DebugLog, WellFormedUtf8IsKept) {
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "%s", "caf\u00e9 \u20ac \U0001f600");
    EXPECT_THAT(textsOf(path), ElementsAre("caf\u00e9 \u20ac \U0001f600"));
}

TEST_F(DebugLog, ModuleIsEscaped) {
    const Handle log = openLog(path, 7, "x\n1970");
    LorxWriteDbgLog(log.get(), 6, "text");
    EXPECT_THAT(contentOf(path), testing::EndsWith(" info x\\n1970: text\n"));
}

TEST_F(DebugLog, FormatInTheTextIsNotFollowed) {
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "%s", "%s %n {} %v %Y");
    EXPECT_THAT(textsOf(path), ElementsAre("%s %n {} %v %Y"));
}

TEST_F(DebugLog, LongestTextIsWhole) {
    const Handle log = openLog(path);
    const std::string text(longestText, 'x');
    LorxWriteDbgLog(log.get(), 6, "%s", text.c_str());
    EXPECT_THAT(textsOf(path), ElementsAre(text));
}

TEST_F(DebugLog, LongerTextIsCutAndSaysSo) {
    const Handle log = openLog(path);
    const std::string text(longestText + 1, 'x');
    LorxWriteDbgLog(log.get(), 6, "%s", text.c_str());
    LorxWriteDbgLog(log.get(), 6, "%s%1000000d", text.c_str(), 1);

    const std::string kept(longestText, 'x');
    EXPECT_THAT(textsOf(path),
                ElementsAre(kept + " ... (8192 bytes)", kept + " ... (1008192 bytes)"));
}

TEST_F(DebugLog, CutSparesEscapesAndCharacters) {
    const Handle log = openLog(path);
    std::vector<std::string> expected;
    // Each of these begins within the limit, by so many bytes, and ends past it.
    for (const std::string character : {"\u00e9", "\u20ac", "\U0001f600"}) {
        for (std::size_t within = 1; within < character.size(); ++within) {
            const std::string kept(longestText - within, 'x');
            const std::string text = kept + character;
            LorxWriteDbgLog(log.get(), 6, "%s!!!!", text.c_str());
            expected.push_back(kept + " ... (" + std::to_string(text.size() + 4) + " bytes)");
        }
        const std::string kept = std::string(longestText - character.size(), 'x') + character;
        LorxWriteDbgLog(log.get(), 6, "%s!", kept.c_str());
        expected.push_back(kept + " ... (8192 bytes)");
    }
    std::string escapes;
    for (std::size_t count = 0; count < longestText; ++count) {
        escapes += "\\x01";
    }
    LorxWriteDbgLog(log.get(), 6, "%s", std::string(10000, '\x01').c_str());
    expected.push_back(escapes + " ... (10000 bytes)");

    EXPECT_EQ(textsOf(path), expected);
}

TEST_F(DebugLog, CutKeepsInvalidBytesEscaped) {
    const Handle log = openLog(path);
    const std::string text = std::string(longestText - 4, 'x') + "\x80\x80\x80\x80";
    LorxWriteDbgLog(log.get(), 6, "%s!", text.c_str());
    EXPECT_THAT(textsOf(path), ElementsAre(std::string(longestText - 4, 'x') +
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

TEST_F(DebugLog, NewFileIsNotForOthers) {
    const UmaskGuard umask(0);
    const Handle log = openLog(path);
    EXPECT_EQ(modeOf(path), 0640U);
}

TEST_F(DebugLog, UmaskOfAServiceLeavesTheGroup) {
    const UmaskGuard umask(022);
    const Handle log = openLog(path);
    EXPECT_EQ(modeOf(path), 0640U);
}

TEST_F(DebugLog, ExistingFileIsContinued) {
    std::ofstream(path) << "before\n";
    std::filesystem::permissions(path, std::filesystem::perms(0600));
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "after");

    const auto lines = linesOf(path);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "before");
    EXPECT_EQ(textOf(lines[1]), "after");
    EXPECT_EQ(modeOf(path), 0600U);
}

TEST_F(DebugLog, HalfARecordAtTheEndGetsItsNewline) {
    std::ofstream(path) << "2026-11-20T07:4";
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "after");

    const auto lines = linesOf(path);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "2026-11-20T07:4");
    EXPECT_EQ(textOf(lines[1]), "after");
}

TEST_F(DebugLog, DescriptorsAreClosedOnExec) {
    const Handle log = openLog(path);
    fill(path);
    for (int round = 0; round < 2; ++round) {
        struct stat logStatus = {};
        ASSERT_EQ(::stat(path.c_str(), &logStatus), 0);
        int found = 0;
        for (int descriptor = 0; descriptor < 1024; ++descriptor) {
            struct stat status = {};
            if (::fstat(descriptor, &status) == 0 && status.st_dev == logStatus.st_dev &&
                status.st_ino == logStatus.st_ino) {
                ++found;
                EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
            }
        }
        EXPECT_EQ(found, 1);
        // The next round looks at the file that this begins.
        LorxWriteDbgLog(log.get(), 6, "rotates");
    }
}

TEST_F(DebugLog, NoDescriptorIsLeftBehind) {
    const auto lowestFree = [] {
        const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ::close(descriptor);
        return descriptor;
    };
    const int before = lowestFree();
    for (int round = 0; round < 3; ++round) {
        const Handle log = openLog(path);
        LorxWriteDbgLog(log.get(), 6, "text");
        const Handle none = openLog(directory.path());
    }
    EXPECT_EQ(lowestFree(), before);
}

TEST_F(DebugLog, FileIsRotatedAtItsLimitWithoutLosingARecord) {
    const UmaskGuard umask(022);
    const Handle log = openLog(path);
    const std::string padding(8000, 'x');
    const int records = 1500;
    for (int record = 0; record < records; ++record) {
        LorxWriteDbgLog(log.get(), 6, "%d %s", record, padding.c_str());
    }

    EXPECT_THAT(namesIn(directory.path()), ElementsAre("naming.1.log", "naming.log"));
    int next = 0;
    for (const std::string name : {"naming.1.log", "naming.log"}) {
        EXPECT_LE(std::filesystem::file_size(directory.path(name)), maximalFileSize);
        EXPECT_EQ(modeOf(directory.path(name)), 0640U);
        for (const std::string& text : textsOf(directory.path(name))) {
            EXPECT_EQ(text, std::to_string(next) + ' ' + padding);
            ++next;
        }
    }
    EXPECT_EQ(next, records);
    EXPECT_GT(std::filesystem::file_size(directory.path("naming.1.log")), maximalFileSize - 8192);
}

TEST_F(DebugLog, FiveOlderFilesAreKept) {
    for (int generation = 0; generation < 8; ++generation) {
        const Handle log = openLog(path);
        LorxWriteDbgLog(log.get(), 6, "generation %d", generation);
        fill(path);
        LorxReleaseDbgLog(openLog(path).release());
    }
    EXPECT_THAT(namesIn(directory.path()),
                ElementsAre("naming.1.log", "naming.2.log", "naming.3.log", "naming.4.log",
                            "naming.5.log", "naming.log"));
    for (int age = 1; age <= 5; ++age) {
        const std::string name = "naming." + std::to_string(age) + ".log";
        EXPECT_EQ(textOf(linesOf(directory.path(name)).at(0)),
                  "generation " + std::to_string(7 - age));
    }
}

TEST_F(DebugLog, ConcurrentWritersProduceWholeLines) {
    constexpr int writers = 4;
    constexpr int records = 200;
    // Half of the writers have a handle of their own, as another module or process would.
    const Handle first = openLog(path);
    const Handle second = openLog(path);
    // The first record after opening looks whether the file ends inside a line, and a record that
    // another handle is just writing looks like that.
    LorxWriteDbgLog(first.get(), 6, "ready");
    LorxWriteDbgLog(second.get(), 6, "ready");
    // Escaped, this is more than a stream's usual buffer holds.
    const std::string padding(3000, '\t');
    std::vector<std::thread> threads;
    threads.reserve(writers);
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back([&, writer] {
            void* const log = writer % 2 == 0 ? first.get() : second.get();
            for (int record = 0; record < records; ++record) {
                LorxWriteDbgLog(log, 6, "%d:%d:%s", writer, record, padding.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    std::string expectedPadding;
    for (std::size_t count = 0; count < padding.size(); ++count) {
        expectedPadding += "\\t";
    }
    std::vector<std::string> texts = textsOf(path);
    ASSERT_GE(texts.size(), 2U);
    texts.erase(texts.begin(), texts.begin() + 2);
    std::map<int, int> next;
    for (const std::string& text : texts) {
        const int writer = text[0] - '0';
        ASSERT_EQ(text, std::to_string(writer) + ':' + std::to_string(next[writer]) + ':' +
                            expectedPadding);
        ++next[writer];
    }
    for (int writer = 0; writer < writers; ++writer) {
        EXPECT_EQ(next[writer], records);
    }
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

TEST_F(DebugLog, PathThatCannotBeOpenedHasNoHandle) {
    EXPECT_EQ(LorxOpenDbgLog(nullptr, "namingService", 6), nullptr);
    EXPECT_EQ(openLog(""), nullptr);
    EXPECT_EQ(openLog(directory.path()), nullptr);
    EXPECT_EQ(openLog(directory.path("missing/naming.log")), nullptr);
    EXPECT_THAT(namesIn(directory.path()), IsEmpty());
}

TEST_F(DebugLog, RemovedDirectoryCostsRecordsOnly) {
    const std::string logDirectory = directory.path("logs");
    const std::string logPath = logDirectory + "/naming.log";
    std::filesystem::create_directory(logDirectory);
    const Handle log = openLog(logPath);
    std::filesystem::remove_all(logDirectory);

    // Past the limit the file must be opened again, and cannot be. Short records after long ones:
    // they would still have had room in the old file.
    testing::internal::CaptureStderr();
    const std::string padding(8000, 'x');
    for (int record = 0; record < 1400; ++record) {
        LorxWriteDbgLog(log.get(), 6, "%s", padding.c_str());
        LorxWriteDbgLog(log.get(), 6, "short");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(std::filesystem::exists(logDirectory));

    std::filesystem::create_directory(logDirectory);
    LorxWriteDbgLog(log.get(), 6, "back");
    EXPECT_THAT(textsOf(logPath), ElementsAre("back"));
}

TEST_F(DebugLog, OlderFileThatCannotBeReplacedCostsRecordsOnly) {
    const Handle log = openLog(path);
    std::filesystem::create_directories(directory.path("naming.1.log/in the way"));
    std::filesystem::create_directories(directory.path("naming.2.log/in the way"));
    fill(path);
    const Handle reopened = openLog(path);
    testing::internal::CaptureStderr();
    LorxWriteDbgLog(reopened.get(), 6, "lost");
    LorxWriteDbgLog(reopened.get(), 6, "kept");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_LT(std::filesystem::file_size(path), 1000U);
    EXPECT_EQ(textsOf(path).back(), "kept");
}

#ifdef __linux__
TEST_F(DebugLog, FullDiskCostsRecordsOnly) {
    std::filesystem::create_symlink("/dev/full", path);
    const Handle log = openLog(path);
    ASSERT_NE(log, nullptr);
    testing::internal::CaptureStderr();
    const std::string padding(8000, 'x');
    for (int record = 0; record < 1400; ++record) {
        LorxWriteDbgLog(log.get(), 6, "%s", padding.c_str());
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(namesIn(directory.path()), ElementsAre("naming.log"));
}
#endif

class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t size) : previousHandler_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &previous_);
        const rlimit limit = {size, previous_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &previous_);
        std::signal(SIGXFSZ, previousHandler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    FileSizeLimit(FileSizeLimit&&) = delete;
    FileSizeLimit& operator=(FileSizeLimit&&) = delete;

  private:
    void (*previousHandler_)(int);
    rlimit previous_{};
};

TEST_F(DebugLog, RecordAfterOneCutByAFullDiskHasALineOfItsOwn) {
    const Handle log = openLog(path);
    {
        const FileSizeLimit limit(1000);
        for (int record = 0; record < 20; ++record) {
            LorxWriteDbgLog(log.get(), 6, "a record of the full disk");
        }
    }
    ASSERT_EQ(std::filesystem::file_size(path), 1000U);
    LorxWriteDbgLog(log.get(), 6, "room again");
    LorxWriteDbgLog(log.get(), 6, "and again");

    const auto texts = textsOf(path);
    ASSERT_GE(texts.size(), 4U);
    EXPECT_EQ(texts.front(), "a record of the full disk");
    EXPECT_EQ(texts[texts.size() - 2], "room again");
    EXPECT_EQ(texts.back(), "and again");
}

}  // namespace
