// SPDX-License-Identifier: Apache-2.0

// Shows that a log survives any kind of file in the place of its file or its directory. Records may
// be lost, no call waits, and records are written again once the log file can be opened.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <ostream>
#include <string>

#include "OpenLog.h"
#include "support/Files.h"
#include "support/OtherUser.h"
#include "support/SpecialFiles.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

using testing::ElementsAre;

std::function<void(const std::string&)> linkTo(const std::string& target) {
    return [target](const std::string& path) { std::filesystem::create_symlink(target, path); };
}

struct Place {
    const char* name;
    std::function<void(const std::string& path)> put;
    bool isOpened;  // States whether a log can be opened there.
};

std::ostream& operator<<(std::ostream& out, const Place& place) {
    return out << place.name;
}

class LogFilePlace : public testing::TestWithParam<Place> {
  protected:
    void SetUp() override { std::filesystem::create_directory(directory.path("elsewhere")); }

    const TemporaryDirectory directory;
    const std::string path = directory.path("naming.log");
};

TEST_P(LogFilePlace, OpeningDoesNotWait) {
    GetParam().put(path);
    const Handle log = openLog(path);
    EXPECT_EQ(log != nullptr, GetParam().isOpened);
    LorxWriteDbgLog(log.get(), 6, "text");
}

TEST_P(LogFilePlace, LosesRecordsOnlyWhileItExists) {
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "before");
    EXPECT_THAT(textsOf(path), ElementsAre("before"));
    std::filesystem::rename(path, directory.path("moved.log"));
    GetParam().put(path);
    testing::internal::CaptureStderr();
    LorxWriteDbgLog(log.get(), 6, "meanwhile");
    LorxWriteDbgLog(log.get(), 6, "meanwhile");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    std::filesystem::rename(path, directory.path("elsewhere/thing"));
    LorxWriteDbgLog(log.get(), 6, "after");
    EXPECT_THAT(textsOf(path), ElementsAre("after"));
    EXPECT_THAT(textsOf(directory.path("moved.log")), ElementsAre("before"));
}

INSTANTIATE_TEST_SUITE_P(
    Each, LogFilePlace,
    testing::Values(Place{"File", [](const std::string& path) { writeFile(path, "x\n"); }, true},
                    Place{"LinkToAFile",
                          [](const std::string& path) {
                              writeFile(path + ".target", "x\n");
                              std::filesystem::create_symlink(path + ".target", path);
                          },
                          true},
                    Place{"LinkToNothing", linkTo("target.log"), true},
                    Place{"LinkIntoNoDirectory", linkTo("missing/target.log"), false},
                    Place{"LinkToItself", linkTo("naming.log"), false},
                    Place{"LinkToADirectory", linkTo("elsewhere"), false},
                    Place{"Directory",
                          [](const std::string& path) { std::filesystem::create_directory(path); },
                          false},
                    Place{"Pipe", makePipe, false}, Place{"Socket", makeSocket, false},
#ifdef __linux__
                    Place{"FullDevice", linkTo("/dev/full"), true},
#endif
                    Place{"NullDevice", linkTo("/dev/null"), true}),
    [](const testing::TestParamInfo<Place>& info) { return info.param.name; });

class LogFilePath : public testing::Test {
  protected:
    const TemporaryDirectory directory;
    const std::string path = directory.path("naming.log");
};

TEST_F(LogFilePath, PathThatCannotBeOpenedYieldsNoHandle) {
    EXPECT_EQ(LorxOpenDbgLog(nullptr, "namingService", 6), nullptr);
    EXPECT_EQ(openLog(""), nullptr);
    EXPECT_EQ(openLog(directory.path()), nullptr);
    EXPECT_EQ(openLog(directory.path("missing/naming.log")), nullptr);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

// A write would end the host if the reader closed the pipe.
TEST_F(LogFilePath, PipeWithAReaderIsNotOpened) {
    makePipe(path);
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(reader, -1);
    EXPECT_EQ(openLog(path), nullptr);
    ::close(reader);
}

TEST_F(LogFilePath, LinkIsRotatedButNotItsTarget) {
    std::filesystem::create_symlink("elsewhere.log", path);
    const Handle log = openLog(path);
    std::filesystem::resize_file(path, kMaximalFileSize);
    LorxWriteDbgLog(log.get(), 6, "text");
    EXPECT_EQ(std::filesystem::read_symlink(directory.path("naming.1.log")), "elsewhere.log");
    EXPECT_EQ(std::filesystem::file_size(directory.path("elsewhere.log")), kMaximalFileSize);
    EXPECT_FALSE(std::filesystem::is_symlink(path));
    EXPECT_THAT(textsOf(path), ElementsAre("text"));
}

TEST_F(LogFilePath, TruncatedFileIsContinuedAtItsNewEnd) {
    const Handle log = openLog(path);
    LorxWriteDbgLog(log.get(), 6, "before");
    std::filesystem::resize_file(path, 0);
    LorxWriteDbgLog(log.get(), 6, "after");
    EXPECT_THAT(textsOf(path), ElementsAre("after"));
}

TEST_F(LogFilePath, RemovedDirectoryOnlyLosesRecords) {
    const std::string logDirectory = directory.path("logs");
    const std::string logPath = logDirectory + "/naming.log";
    std::filesystem::create_directory(logDirectory);
    const Handle log = openLog(logPath);
    std::filesystem::remove_all(logDirectory);

    // The log must open a new file past the limit, but cannot. A short record follows each long
    // one, since it would still fit into the old file.
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

#ifdef __linux__
TEST_F(LogFilePath, FullDiskOnlyLosesRecords) {
    std::filesystem::create_symlink("/dev/full", path);
    const Handle log = openLog(path);
    ASSERT_NE(log, nullptr);
    testing::internal::CaptureStderr();
    const std::string padding(8000, 'x');
    for (int record = 0; record < 1400; ++record) {
        LorxWriteDbgLog(log.get(), 6, "%s", padding.c_str());
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(std::filesystem::is_symlink(path));
}
#endif

TEST_F(LogFilePath, FileWithoutWritePermissionIsNotOpened) {
    writeFile(path, "");
    asOrdinaryUser(directory.path(), [this] {
        for (const int mode : {0000, 0400}) {
            std::filesystem::permissions(path, std::filesystem::perms(mode));
            EXPECT_EQ(openLog(path), nullptr);
        }
    });
}

TEST_F(LogFilePath, FileWithOnlyWritePermissionIsContinued) {
    writeFile(path, "");
    asOrdinaryUser(directory.path(), [this] {
        std::filesystem::permissions(path, std::filesystem::perms(0200));
        const Handle log = openLog(path);
        LorxWriteDbgLog(log.get(), 6, "text");
        std::filesystem::permissions(path, std::filesystem::perms(0600));
        EXPECT_THAT(textsOf(path), ElementsAre("text"));
    });
}

TEST_F(LogFilePath, PipeWithOnlyWritePermissionIsNotWaitedFor) {
    makePipe(path);
    asOrdinaryUser(directory.path(), [this] {
        std::filesystem::permissions(path, std::filesystem::perms(0200));
        EXPECT_EQ(openLog(path), nullptr);
    });
}

TEST_F(LogFilePath, ExistingFileInAReadOnlyDirectoryIsContinued) {
    asOrdinaryUser(directory.path(), [this] {
        std::filesystem::permissions(directory.path(), std::filesystem::perms(0500));
        EXPECT_EQ(openLog(path), nullptr);
        std::filesystem::permissions(directory.path(), std::filesystem::perms(0700));
        Handle log = openLog(path);
        std::filesystem::permissions(directory.path(), std::filesystem::perms(0500));
        log = openLog(path);
        LorxWriteDbgLog(log.get(), 6, "text");
        EXPECT_THAT(textsOf(path), ElementsAre("text"));
    });
}

// A host that opened the log as root and then became another user finds such a directory.
TEST_F(LogFilePath, OpenFileInAnInaccessibleDirectoryIsContinued) {
    asOrdinaryUser(directory.path(), [this] {
        const Handle log = openLog(path);
        LorxWriteDbgLog(log.get(), 6, "before");
        std::filesystem::permissions(directory.path(), std::filesystem::perms(0));
        LorxWriteDbgLog(log.get(), 6, "after");
        std::filesystem::permissions(directory.path(), std::filesystem::perms(0700));
        EXPECT_THAT(textsOf(path), ElementsAre("before", "after"));

        std::filesystem::resize_file(path, kMaximalFileSize);
        std::filesystem::permissions(directory.path(), std::filesystem::perms(0));
        LorxWriteDbgLog(log.get(), 6, "emptied");
        std::filesystem::permissions(directory.path(), std::filesystem::perms(0700));
        EXPECT_THAT(textsOf(path), ElementsAre("emptied"));
    });
}

}  // namespace
}  // namespace qv::tests
