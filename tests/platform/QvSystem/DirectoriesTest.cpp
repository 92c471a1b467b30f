// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/Directories.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <system_error>

#include "support/FileModes.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace qv::system {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(DirectoryOf, IsWhatStandsBeforeTheLastSlash) {
    EXPECT_EQ(directoryOf("/a/b/c"), "/a/b");
    EXPECT_EQ(directoryOf("a/b"), "a");
    EXPECT_EQ(directoryOf("/a"), "/");
    EXPECT_EQ(directoryOf("a"), ".");
}

TEST(MakeDirectories, MakesAllThatAreMissingAndReturnsThem) {
    const tests::TemporaryDirectory directory;
    const tests::UmaskGuard umask(0022);
    EXPECT_THAT(makeDirectories(directory.path("a/b/c"), 0770),
                ElementsAre(directory.path("a"), directory.path("a/b"), directory.path("a/b/c")));
    EXPECT_EQ(tests::modeOf(directory.path("a")), 0750U);
    EXPECT_EQ(tests::modeOf(directory.path("a/b/c")), 0750U);
}

TEST(MakeDirectories, LeavesWhatIsThereAlone) {
    const tests::TemporaryDirectory directory;
    fs::create_directory(directory.path("a"));
    fs::permissions(directory.path("a"), fs::perms(0700));
    EXPECT_THAT(makeDirectories(directory.path("a"), 0755), IsEmpty());
    EXPECT_THAT(makeDirectories(directory.path("a/b"), 0755), ElementsAre(directory.path("a/b")));
    EXPECT_EQ(tests::modeOf(directory.path("a")), 0700U);
    EXPECT_THAT(makeDirectories("", 0755), IsEmpty());
    EXPECT_THAT(makeDirectories("/", 0755), IsEmpty());
}

TEST(MakeDirectories, FollowsALinkToADirectory) {
    const tests::TemporaryDirectory directory;
    fs::create_directory(directory.path("real"));
    fs::create_symlink("real", directory.path("link"));
    makeDirectories(directory.path("link/a"), 0755);
    EXPECT_TRUE(fs::is_directory(directory.path("real/a")));
}

TEST(MakeDirectories, TakesSlashesInARow) {
    const tests::TemporaryDirectory directory;
    makeDirectories(directory.path("a//b/"), 0755);
    EXPECT_TRUE(fs::is_directory(directory.path("a/b")));
}

TEST(MakeDirectories, FailsWhereAFileStandsInTheWayAndMakesNone) {
    const tests::TemporaryDirectory directory;
    tests::writeFile(directory.path("file"), "");
    try {
        makeDirectories(directory.path("file/b"), 0755);
        FAIL() << "made";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::not_a_directory);
        EXPECT_THAT(error.what(), HasSubstr(directory.path("file/b")));
    }
    const std::string tooLong(300, 'x');
    EXPECT_THROW(makeDirectories(directory.path("a/b/") + tooLong, 0755), std::system_error);
    EXPECT_FALSE(fs::exists(directory.path("a")));
}

}  // namespace
}  // namespace qv::system
