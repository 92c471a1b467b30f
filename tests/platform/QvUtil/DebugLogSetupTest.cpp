// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "QvLog.h"
#include "QvUtil.h"
#include "support/CancelledThread.h"
#include "support/EnvironmentVariable.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/SpecialFiles.h"
#include "support/TemporaryDirectory.h"

namespace {

using qv::tests::EnvironmentVariable;
using qv::tests::makePipe;
using qv::tests::modeOf;
using qv::tests::TemporaryDirectory;
using qv::tests::UmaskGuard;

using Handle = std::unique_ptr<void, decltype(&LorxReleaseDbgLog)>;

Handle initDebug(const std::string& logPath) {
    void* handle = nullptr;
    const int result =
        QvInitDebugByConfig(&handle, "config.plist", "namingService", logPath.c_str());
    EXPECT_EQ(result, handle != nullptr ? 0 : -1);
    return {handle, LorxReleaseDbgLog};
}

class DebugLogSetup : public testing::Test {
  protected:
    const TemporaryDirectory directory;
    const EnvironmentVariable logDirectory{"QV_LOG_DIR", std::nullopt};
    const EnvironmentVariable configDirectory{"QV_CONFIG_DIR", directory.path()};
};

TEST_F(DebugLogSetup, LogIsAtTheGivenPath) {
    const Handle log = initDebug(directory.path("naming.log"));
    ASSERT_NE(log, nullptr);
    LorxWriteDbgLog(log.get(), 6, "text");

    EXPECT_THAT(qv::tests::contentOf(directory.path("naming.log")),
                testing::Optional(testing::EndsWith(" info namingService: text\n")));
}

TEST_F(DebugLogSetup, EnvironmentNamesAnotherDirectory) {
    const EnvironmentVariable variable("QV_LOG_DIR", directory.path("elsewhere"));
    const Handle log = initDebug(directory.path("given/naming.log"));
    EXPECT_NE(log, nullptr);
    EXPECT_TRUE(std::filesystem::exists(directory.path("elsewhere/naming.log")));
    EXPECT_FALSE(std::filesystem::exists(directory.path("given")));
}

TEST_F(DebugLogSetup, EnvironmentAppliesToANameWithoutADirectory) {
    const EnvironmentVariable variable("QV_LOG_DIR", directory.path());
    const Handle log = initDebug("naming.log");
    EXPECT_NE(log, nullptr);
    EXPECT_TRUE(std::filesystem::exists(directory.path("naming.log")));
}

TEST_F(DebugLogSetup, EmptyVariableCountsAsUnset) {
    const EnvironmentVariable variable("QV_LOG_DIR", "");
    const Handle log = initDebug(directory.path("naming.log"));
    EXPECT_NE(log, nullptr);
    EXPECT_TRUE(std::filesystem::exists(directory.path("naming.log")));
}

TEST_F(DebugLogSetup, MissingDirectoriesAreCreatedWithoutAccessForOthers) {
    for (const mode_t mask : {0, 022, 027, 077}) {
        const UmaskGuard umask(mask);
        const std::string top = directory.path(std::to_string(mask));
        const Handle log = initDebug(top + "/a/b//naming.log");
        EXPECT_NE(log, nullptr);
        EXPECT_EQ(modeOf(top), 0750U & ~mask);
        EXPECT_EQ(modeOf(top + "/a"), 0750U & ~mask);
        EXPECT_EQ(modeOf(top + "/a/b"), 0750U & ~mask);
        EXPECT_EQ(modeOf(top + "/a/b/naming.log"), 0640U & ~mask);
    }
}

TEST_F(DebugLogSetup, ExistingDirectoryKeepsItsMode) {
    std::filesystem::create_directory(directory.path("logs"));
    std::filesystem::permissions(directory.path("logs"), std::filesystem::perms(0711));
    const Handle log = initDebug(directory.path("logs/naming.log"));
    EXPECT_NE(log, nullptr);
    EXPECT_EQ(modeOf(directory.path("logs")), 0711U);
}

TEST_F(DebugLogSetup, LinkToADirectoryIsFollowed) {
    std::filesystem::create_directory(directory.path("elsewhere"));
    std::filesystem::create_directory_symlink("elsewhere", directory.path("logs"));
    const Handle log = initDebug(directory.path("logs/naming/naming.log"));
    EXPECT_NE(log, nullptr);
    EXPECT_TRUE(std::filesystem::exists(directory.path("elsewhere/naming/naming.log")));
}

TEST_F(DebugLogSetup, OtherThanADirectoryIsNeitherReplacedNorWaitedFor) {
    makePipe(directory.path("pipe"));
    std::filesystem::create_symlink("nothing", directory.path("link"));
    for (const char* const name : {"pipe", "link"}) {
        EXPECT_EQ(initDebug(directory.path(name) + "/naming.log"), nullptr) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(directory.path("nothing")));
    EXPECT_TRUE(std::filesystem::is_fifo(directory.path("pipe")));
}

TEST_F(DebugLogSetup, LogThatCannotBeOpenedLeavesANullHandle) {
    std::ofstream(directory.path("file")) << "not a directory";
    const std::string inAFile = directory.path("file/naming.log");
    const std::string aDirectory = directory.path();
    for (const char* const path :
         {inAFile.c_str(), aDirectory.c_str(), "", "/", static_cast<const char*>(nullptr)}) {
        int something = 0;
        void* handle = &something;
        EXPECT_EQ(QvInitDebugByConfig(&handle, "config.plist", "namingService", path), -1);
        EXPECT_EQ(handle, nullptr);
    }
}

TEST_F(DebugLogSetup, NullHandlePointerIsRefused) {
    EXPECT_EQ(QvInitDebugByConfig(nullptr, "config.plist", "namingService",
                                  directory.path("naming.log").c_str()),
              -1);
    EXPECT_FALSE(std::filesystem::exists(directory.path("naming.log")));
}

TEST_F(DebugLogSetup, NullConfigAndModuleAreAccepted) {
    void* handle = nullptr;
    EXPECT_EQ(QvInitDebugByConfig(&handle, nullptr, nullptr, directory.path("naming.log").c_str()),
              0);
    LorxReleaseDbgLog(handle);
}

TEST_F(DebugLogSetup, CancelledThreadOpensItsLogBeforeItEnds) {
    Handle log(nullptr, LorxReleaseDbgLog);
    EXPECT_TRUE(
        qv::tests::isCancelledAfter([&] { log = initDebug(directory.path("naming.log")); }));
    EXPECT_NE(log, nullptr);
}

}  // namespace
