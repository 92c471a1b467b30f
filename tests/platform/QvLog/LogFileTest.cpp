// SPDX-License-Identifier: Apache-2.0

// Tests the rotation of the log file. None of the six files exceeds the limit, even with several
// handles, threads or processes.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "OpenLog.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/LongestFile.h"
#include "support/OtherUser.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

using testing::ElementsAre;

// A record takes up to four bytes for each byte of the text, and its head.
constexpr std::size_t kLongestRecord = 4UL * 8192 + 200;

std::set<std::string> namesIn(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

std::string older(int age) {
    return "naming." + std::to_string(age) + ".log";
}

class LogFile : public testing::Test {
  protected:
    // Leaves no room for another record in the file.
    void fill() const { std::filesystem::resize_file(path, kMaximalFileSize - 1); }

    // Checks the size of each file. A file may exceed the limit by `more`, since writers do not see
    // the records that others are writing.
    void expectWithinLimit(std::size_t more = 0) const {
        for (const std::string& name : namesIn(directory.path())) {
            EXPECT_LE(std::filesystem::file_size(directory.path(name)), kMaximalFileSize + more)
                << name;
        }
    }

    // Returns the texts of all files, from the oldest file on.
    std::vector<std::string> allTexts() const {
        std::vector<std::string> all;
        for (int age = 5; age >= 0; --age) {
            const std::string file = age == 0 ? path : directory.path(older(age));
            const auto texts = textsOf(file);
            all.insert(all.end(), texts.begin(), texts.end());
        }
        return all;
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path("naming.log");
};

TEST_F(LogFile, ExistingFileIsContinued) {
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

TEST_F(LogFile, IncompleteRecordAtTheEndGetsANewline) {
    std::ofstream(path) << "2026-11-20T07:4";
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "after");

    const auto lines = linesOf(path);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "2026-11-20T07:4");
    EXPECT_EQ(textOf(lines[1]), "after");
}

TEST_F(LogFile, DescriptorsAreClosedOnExec) {
    const Handle log = openLog(path);
    fill();
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
        // The next round checks the file that this record begins.
        LorxWriteDbgLog(log.get(), 6, "rotates");
    }
}

TEST_F(LogFile, FileIsRotatedAtItsLimitWithoutLosingARecord) {
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
        EXPECT_LE(std::filesystem::file_size(directory.path(name)), kMaximalFileSize);
        EXPECT_EQ(modeOf(directory.path(name)), 0640U);
        for (const std::string& text : textsOf(directory.path(name))) {
            EXPECT_EQ(text, std::to_string(next) + ' ' + padding);
            ++next;
        }
    }
    EXPECT_EQ(next, records);
    EXPECT_GT(std::filesystem::file_size(directory.path("naming.1.log")), kMaximalFileSize - 8192);
}

TEST_F(LogFile, IsRotatedExactlyAtItsLimit) {
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "text");
    const auto length = std::filesystem::file_size(path);
    std::filesystem::resize_file(path, kMaximalFileSize - length);
    LorxWriteDbgLog(log.get(), 6, "text");
    EXPECT_EQ(std::filesystem::file_size(path), kMaximalFileSize);
    std::filesystem::resize_file(path, kMaximalFileSize - length + 1);
    LorxWriteDbgLog(log.get(), 6, "text");
    EXPECT_EQ(std::filesystem::file_size(path), length);
}

TEST_F(LogFile, FiveOlderFilesAreKept) {
    for (int generation = 0; generation < 8; ++generation) {
        const Handle log = openLog(path);
        LorxWriteDbgLog(log.get(), 6, "generation %d", generation);
        fill();
    }
    EXPECT_THAT(namesIn(directory.path()),
                ElementsAre("naming.1.log", "naming.2.log", "naming.3.log", "naming.4.log",
                            "naming.5.log", "naming.log"));
    for (int age = 1; age <= 5; ++age) {
        EXPECT_EQ(textOf(linesOf(directory.path(older(age))).at(0)),
                  "generation " + std::to_string(7 - age));
    }
}

TEST_F(LogFile, NameWithoutExtensionIsRotated) {
    for (const std::string name : {"naming", ".naming", "naming."}) {
        const Handle log = openLog(directory.path(name));
        std::filesystem::resize_file(directory.path(name), kMaximalFileSize);
        LorxWriteDbgLog(log.get(), 6, "text");
        EXPECT_THAT(textsOf(directory.path(name)), ElementsAre("text"));
        EXPECT_EQ(std::filesystem::file_size(directory.path(name + ".1")), kMaximalFileSize);
    }
}

TEST_F(LogFile, LongestRecordsStayWithinTheLimit) {
    const Handle log = openLog(path);
    const std::string text(10'000, '\x01');
    for (int file = 0; file < 7; ++file) {
        for (int record = 0; record < 20; ++record) {
            LorxWriteDbgLog(log.get(), 6, "%s", text.c_str());
        }
        expectWithinLimit();
        std::filesystem::resize_file(path, kMaximalFileSize - 10 * kLongestRecord);
        for (int record = 0; record < 20; ++record) {
            LorxWriteDbgLog(log.get(), 6, "%s", text.c_str());
        }
        expectWithinLimit();
    }
    EXPECT_EQ(namesIn(directory.path()).size(), 6U);
}

TEST_F(LogFile, FileBeyondTheLimitIsNotContinued) {
    std::ofstream(path) << "before";
    std::filesystem::resize_file(path, 5 * kMaximalFileSize);
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "first");
    LorxWriteDbgLog(log.get(), 6, "second");
    EXPECT_THAT(textsOf(path), ElementsAre("first", "second"));
    EXPECT_EQ(std::filesystem::file_size(directory.path(older(1))), 5 * kMaximalFileSize);
}

TEST_F(LogFile, HandlesInThreadsKeepTheLimitWithoutLosingARecord) {
    constexpr int writers = 4;
    constexpr int records = 1500;
    const std::string padding(8000, 'x');
    std::vector<Handle> logs;
    logs.reserve(writers);
    for (int writer = 0; writer < writers; ++writer) {
        logs.push_back(openLog(path));
    }
    std::vector<std::thread> threads;
    threads.reserve(writers);
    for (const Handle& log : logs) {
        threads.emplace_back([&] {
            for (int record = 0; record < records; ++record) {
                LorxWriteDbgLog(log.get(), 6, "%s", padding.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    expectWithinLimit(writers * kLongestRecord);
    // No file is rotated twice.
    for (const std::string& name : namesIn(directory.path())) {
        if (name != "naming.log") {
            EXPECT_GT(std::filesystem::file_size(directory.path(name)),
                      kMaximalFileSize - kLongestRecord)
                << name;
        }
    }
    const auto texts = allTexts();
    EXPECT_EQ(texts.size(), static_cast<std::size_t>(writers * records));
    EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()), std::set<std::string>{padding});
}

// Two processes that rotate at once may drop an older file too early, but write no incomplete
// record.
TEST_F(LogFile, ProcessesKeepTheLimit) {
    const std::string padding(8000, 'x');
    const Handle logs[] = {openLog(path), openLog(path)};
    const auto writeMany = [&](const Handle& log) {
        for (int record = 0; record < 2000; ++record) {
            LorxWriteDbgLog(log.get(), 6, "%s", padding.c_str());
        }
    };
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        writeMany(logs[0]);
        ::_exit(0);
    }
    writeMany(logs[1]);
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    expectWithinLimit(2 * kLongestRecord);
    const auto texts = allTexts();
    EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()), std::set<std::string>{padding});
}

// A directory that cannot be replaced or moved only costs older records. The log continues and
// stays within its limit.
TEST_F(LogFile, DirectoryInPlaceOfAnOlderFileOnlyLosesOlderRecords) {
    for (int inTheWay = 1; inTheWay <= 5; ++inTheWay) {
        SCOPED_TRACE(inTheWay);
        const TemporaryDirectory logs;
        const std::string log = logs.path("naming.log");
        for (int age = 1; age <= inTheWay; ++age) {
            std::filesystem::create_directories(logs.path(older(age) + "/not empty"));
        }
        const Handle handle = openLog(log);
        for (int generation = 0; generation < 12; ++generation) {
            std::filesystem::resize_file(log, kMaximalFileSize - 1);
            LorxWriteDbgLog(handle.get(), 6, "generation %d", generation);
            EXPECT_THAT(textsOf(log), ElementsAre("generation " + std::to_string(generation)));
        }
        EXPECT_LE(namesIn(logs.path()).size(), 6U);
    }
}

TEST_F(LogFile, DirectoriesInAllPlacesLeaveOnlyTheNewestFile) {
    for (int age = 1; age <= 5; ++age) {
        std::filesystem::create_directories(directory.path(older(age) + "/not empty"));
    }
    const Handle log = openLog(path);
    fill();
    LorxWriteDbgLog(log.get(), 6, "first");
    EXPECT_THAT(textsOf(path), ElementsAre("first"));
    LorxWriteDbgLog(log.get(), 6, "second");
    EXPECT_THAT(textsOf(path), ElementsAre("first", "second"));
}

// Renaming a file to another name of the same file does nothing and reports success.
TEST_F(LogFile, LinkToTheSameFileInPlaceOfAnOlderFileIsHarmless) {
    const Handle log = openLog(path);
    fill();
    for (int age = 1; age <= 5; ++age) {
        std::filesystem::create_hard_link(path, directory.path(older(age)));
    }
    LorxWriteDbgLog(log.get(), 6, "first");
    LorxWriteDbgLog(log.get(), 6, "second");
    EXPECT_THAT(textsOf(path), ElementsAre("first", "second"));
}

TEST_F(LogFile, FileInAReadOnlyDirectoryIsEmptiedAtItsLimit) {
    std::ofstream(path) << "before\n";
    asOrdinaryUser(directory.path(), [this] {
        const Handle log = openLog(path);
        std::filesystem::permissions(directory.path(), std::filesystem::perms(0500));
        for (int file = 0; file < 3; ++file) {
            fill();
            LorxWriteDbgLog(log.get(), 6, "after");
            EXPECT_THAT(textsOf(path), ElementsAre("after"));
        }
        EXPECT_THAT(namesIn(directory.path()), ElementsAre("naming.log"));
        std::filesystem::permissions(directory.path(), std::filesystem::perms(0700));
        fill();
        LorxWriteDbgLog(log.get(), 6, "room");
        EXPECT_THAT(namesIn(directory.path()), ElementsAre("naming.1.log", "naming.log"));
    });
}

TEST_F(LogFile, NewAndRotatedFilesGiveNoAccessToOthers) {
    for (const mode_t mask : {0, 022, 027, 077}) {
        const TemporaryDirectory logs;
        const UmaskGuard umask(mask);
        const std::string file = logs.path("naming.log");
        const Handle log = openLog(file);
        ASSERT_NE(log, nullptr);
        EXPECT_EQ(modeOf(file), 0640U & ~mask);
        LorxWriteDbgLog(log.get(), 6, "text");
        std::filesystem::resize_file(file, kMaximalFileSize - 1);
        LorxWriteDbgLog(log.get(), 6, "text");
        EXPECT_EQ(modeOf(logs.path(older(1))), 0640U & ~mask);
        EXPECT_EQ(modeOf(file), 0640U & ~mask);
    }
}

TEST_F(LogFile, RecordAfterAnIncompleteOneStartsANewLine) {
    const Handle log = openLog(path);
    {
        const LongestFile limit(1000);
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
}  // namespace qv::tests
