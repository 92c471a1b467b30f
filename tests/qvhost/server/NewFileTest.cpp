// SPDX-License-Identifier: Apache-2.0

#include "server/NewFile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>
#include <utility>

#include "qvhost/TestFiles.h"
#include "support/FileModes.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using testing::ExitedWithCode;
using testing::KilledBySignal;

// Returns the error number of an attempt, or 0 if it succeeds.
int errorOf(const std::string& path) {
    try {
        makeNewFile(path, "content");
    } catch (const std::system_error& error) {
        return error.code().value();
    }
    return 0;
}

[[noreturn]] void exitWithError(int error) {
    static_cast<void>(std::fprintf(stderr, "%s\n", std::generic_category().message(error).c_str()));
    _exit(error == 0 ? EXIT_SUCCESS : EXIT_FAILURE);
}

TEST(NewFile, IsReadableByItsOwnerOnly) {
    const TestFiles files;
    for (const mode_t mask : {0U, 0277U}) {
        const std::string path = files.path(std::to_string(mask));
        const tests::UmaskGuard umask(mask);
        makeNewFile(path, std::string("a\0\xff", 3));
        EXPECT_EQ(readFile(path), std::string("a\0\xff", 3));
        EXPECT_EQ(tests::modeOf(path), 0600U);
    }
}

TEST(NewFile, LongContentIsWrittenWhole) {
    const TestFiles files;
    const std::string content(std::size_t{3} << 20, 'x');
    makeNewFile(files.path("file"), content);
    EXPECT_TRUE(readFile(files.path("file")) == content);
}

TEST(NewFile, LeavesNothingBesideItself) {
    const TestFiles files;
    makeNewFile(files.path("file"), "content");
    EXPECT_EQ(std::distance(fs::directory_iterator(files.path("")), {}), 1);
    EXPECT_EQ(fs::hard_link_count(files.path("file")), 1U);
}

TEST(NewFile, MissingDirectoriesAreMade) {
    const TestFiles files;
    const tests::UmaskGuard umask(0);
    for (const char* directory : {"a/b/c", "d//", "e/../f"}) {
        makeNewFile(files.path(directory) + "/file", "content");
        EXPECT_EQ(readFile(files.path(directory) + "/file"), "content");
    }
    EXPECT_EQ(tests::modeOf(files.path("a")), 0750U);
    EXPECT_EQ(tests::modeOf(files.path("a/b/c")), 0750U);
}

TEST(NewFile, NameWithoutADirectoryIsInTheCurrentOne) {
    const TestFiles files;
    const fs::path previous = fs::current_path();
    fs::current_path(files.path(""));
    EXPECT_EQ(errorOf("file"), 0);
    fs::current_path(previous);
    EXPECT_EQ(readFile(files.path("file")), "content");
}

TEST(NewFile, ReplacesNothing) {
    const TestFiles files;
    files.write("file", "other");
    fs::create_directory(files.path("directory"));
    fs::create_symlink(files.path("nowhere"), files.path("link"));
    for (const char* name : {"file", "directory", "link"}) {
        EXPECT_EQ(errorOf(files.path(name)), EEXIST) << name;
    }
    EXPECT_EQ(readFile(files.path("file")), "other");
    EXPECT_EQ(fs::read_symlink(files.path("link")), files.path("nowhere"));
    EXPECT_FALSE(fs::exists(files.path("nowhere")));
    EXPECT_EQ(std::distance(fs::directory_iterator(files.path("")), {}), 3);
}

TEST(NewFile, PrivateDirectoryIsMadeBesideIt) {
    const TestFiles files;
    const tests::UmaskGuard umask(0);
    makeNewFile(files.path("a/file"), "content", files.path("a/private"));
    EXPECT_EQ(tests::modeOf(files.path("a/private")), 0700U);
    EXPECT_EQ(tests::modeOf(files.path("a")), 0750U);
    fs::permissions(files.path("a/private"), fs::perms(0755));
    makeNewFile(files.path("a/other"), "content", files.path("a/private"));
    EXPECT_EQ(tests::modeOf(files.path("a/private")), 0755U);
    EXPECT_THROW(makeNewFile(files.path("a/file"), "content", files.path("a/second")),
                 std::system_error);
    EXPECT_FALSE(fs::exists(files.path("a/second")));
    EXPECT_THROW(makeNewFile(files.path("b/file"), "content", files.path("nowhere/private")),
                 std::system_error);
    EXPECT_FALSE(fs::exists(files.path("b")));
}

TEST(NewFile, FailsBelowAFile) {
    const TestFiles files;
    files.write("file", "other");
    EXPECT_EQ(errorOf(files.path("file/name")), ENOTDIR);
    EXPECT_EQ(errorOf(files.path("file/a/name")), ENOTDIR);
}

TEST(NewFile, FullDiskLeavesNothing) {
    const TestFiles files;
    EXPECT_EXIT(
        {
            static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
            rlimit limit = {};
            getrlimit(RLIMIT_FSIZE, &limit);
            const rlim_t previous = std::exchange(limit.rlim_cur, 3);
            setrlimit(RLIMIT_FSIZE, &limit);
            const int error = errorOf(files.path("a/b/file"));
            limit.rlim_cur = previous;
            setrlimit(RLIMIT_FSIZE, &limit);
            exitWithError(error);
        },
        ExitedWithCode(EXIT_FAILURE), "File too large");
    EXPECT_TRUE(fs::is_empty(files.path("")));
}

TEST(NewFile, InterruptedAttemptLeavesNothing) {
    const TestFiles files;
    EXPECT_EXIT(
        {
            // The signal is pending, as one that arrives in the middle is.
            sigset_t signals;
            sigemptyset(&signals);
            sigaddset(&signals, SIGINT);
            sigprocmask(SIG_BLOCK, &signals, nullptr);
            static_cast<void>(std::raise(SIGINT));
            static_cast<void>(errorOf(files.path("a/file")));
            sigprocmask(SIG_UNBLOCK, &signals, nullptr);
        },
        KilledBySignal(SIGINT), "");
    EXPECT_TRUE(fs::is_empty(files.path("")));
}

TEST(NewFile, SignalThatIsIgnoredChangesNothing) {
    const TestFiles files;
    EXPECT_EXIT(
        {
            static_cast<void>(std::signal(SIGHUP, SIG_IGN));
            sigset_t signals;
            sigemptyset(&signals);
            sigaddset(&signals, SIGHUP);
            sigprocmask(SIG_BLOCK, &signals, nullptr);
            static_cast<void>(std::raise(SIGHUP));
            exitWithError(errorOf(files.path("file")));
        },
        ExitedWithCode(EXIT_SUCCESS), "");
    EXPECT_EQ(readFile(files.path("file")), "content");
}

TEST(NewFile, DirectoryThatMayNotBeWrittenIsAnError) {
    const TestFiles files;
    fs::permissions(files.path(""), fs::perms(0555));
    for (const char* name : {"/file", "/a/file"}) {
        EXPECT_EXIT(
            {
                constexpr uid_t kNobody = 65534;
                if (geteuid() == 0 && setuid(kNobody) != 0) {
                    _exit(EXIT_FAILURE);
                }
                exitWithError(errorOf(files.path("") + name));
            },
            ExitedWithCode(EXIT_FAILURE), "Permission denied")
            << name;
    }
    fs::permissions(files.path(""), fs::perms(0700));
    EXPECT_TRUE(fs::is_empty(files.path("")));
}

}  // namespace
}  // namespace qv::host
