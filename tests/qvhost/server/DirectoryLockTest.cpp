// SPDX-License-Identifier: Apache-2.0

#include "server/DirectoryLock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "support/FileModes.h"
#include "support/Files.h"
#include "support/OtherUser.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using tests::contentOf;
using tests::TemporaryDirectory;

constexpr char kSocket[] = "/run/a socket";

std::string processHere() {
    return std::to_string(::getpid());
}

// Returns an empty text if the lock was free.
std::string lockingProblem(const std::string& configuration) {
    try {
        const DirectoryLock lock(configuration, "/run/other");
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(DirectoryLock, FileNamesItsHolder) {
    const TemporaryDirectory files;
    { const DirectoryLock lock(files.path("a.conf"), "/run/a/much/longer/path"); }
    const DirectoryLock lock(files.path("a.conf"), kSocket);
    EXPECT_EQ(contentOf(files.path("a.conf.lock")), processHere() + " /run/a socket\n");
    EXPECT_FALSE(fs::exists(files.path("a.conf")));
}

TEST(DirectoryLock, SecondHostIsToldWhoIsInItsWay) {
    const TemporaryDirectory files;
    const std::string configuration = files.path("a.conf");
    {
        const DirectoryLock lock(configuration, kSocket);
        const std::string problem = lockingProblem(configuration);
        EXPECT_EQ(problem, configuration + " is in use by the process " + processHere() +
                               " with the socket /run/a socket, which holds the lock " +
                               configuration + ".lock");
        EXPECT_EQ(lockingProblem(configuration), problem) << "the refused host changed the file";
        EXPECT_EQ(lockingProblem(files.path("b.conf")), "");
    }
    EXPECT_EQ(lockingProblem(configuration), "");
}

TEST(DirectoryLock, HolderWithoutASocketIsNamed) {
    const TemporaryDirectory files;
    const DirectoryLock lock(files.path("a.conf"), "");
    EXPECT_THAT(
        lockingProblem(files.path("a.conf")),
        AllOf(HasSubstr("by the process " + processHere() + ", which"), Not(HasSubstr("socket"))));
}

TEST(DirectoryLock, HolderThatHasNotWrittenItsNameIsInTheWay) {
    const TemporaryDirectory files;
    const DirectoryLock lock(files.path("a.conf"), kSocket);
    for (const std::string content : {"", "12", "12 /run/a"}) {
        tests::writeFile(files.path("a.conf.lock"), content);
        EXPECT_THAT(lockingProblem(files.path("a.conf")), HasSubstr("a.conf is in use, which"));
    }
}

TEST(DirectoryLock, FileOfAKilledHostIsTakenOver) {
    const TemporaryDirectory files;
    tests::writeFile(files.path("a.conf.lock"), "1 /run/a/path/of/an/earlier/host\n");
    const DirectoryLock lock(files.path("a.conf"), kSocket);
    EXPECT_EQ(contentOf(files.path("a.conf.lock")), processHere() + " /run/a socket\n");
}

TEST(DirectoryLock, FileIsForTheOwnerAlone) {
    const TemporaryDirectory files;
    const tests::UmaskGuard guard(0);
    const DirectoryLock lock(files.path("a.conf"), kSocket);
    EXPECT_EQ(tests::modeOf(files.path("a.conf.lock")), 0600U);
}

TEST(DirectoryLock, LinkIsNotFollowed) {
    const TemporaryDirectory files;
    tests::writeFile(files.path("target"), "content");
    fs::create_symlink(files.path("target"), files.path("a.conf.lock"));
    EXPECT_THAT(lockingProblem(files.path("a.conf")),
                AllOf(HasSubstr(files.path("a.conf.lock")), HasSubstr("symbolic link")));
    EXPECT_EQ(contentOf(files.path("target")), "content");
}

TEST(DirectoryLock, MissingDirectoryIsNamed) {
    const TemporaryDirectory files;
    EXPECT_THAT(lockingProblem(files.path("none/a.conf")),
                AllOf(HasSubstr(files.path("none")), HasSubstr("No such file or directory")));
}

TEST(DirectoryLock, DirectoryThatMayNotBeWrittenIsRefused) {
    const TemporaryDirectory files;
    tests::asOrdinaryUser(files.path(), [&files] {
        ASSERT_EQ(::chmod(files.path().c_str(), 0500), 0);
        EXPECT_THAT(lockingProblem(files.path("a.conf")),
                    AllOf(HasSubstr(files.path("a.conf.lock")), HasSubstr("Permission denied")));
    });
}

TEST(DirectoryLock, RootDoesNotUseTheDirectoryOfAnotherUser) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can be refused";
    }
    const TemporaryDirectory files;
    ASSERT_EQ(::chown(files.path().c_str(), 65534, 65534), 0);
    EXPECT_THAT(lockingProblem(files.path("a.conf")),
                AllOf(HasSubstr("root"), HasSubstr(files.path()), HasSubstr("65534")));
    EXPECT_FALSE(fs::exists(files.path("a.conf.lock")));
    tests::asOrdinaryUser(files.path(),
                          [&files] { EXPECT_EQ(lockingProblem(files.path("a.conf")), ""); });
}

}  // namespace
}  // namespace qv::host
