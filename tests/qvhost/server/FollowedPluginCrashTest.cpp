// SPDX-License-Identifier: Apache-2.0

// Ends hosts at any moment, also where record and file cannot be written. The next start has what
// was acknowledged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <random>
#include <string>

#include "qvhost/server/FollowedPluginFixture.h"
#include "support/LongestFile.h"
#include "support/OtherUser.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using tests::fileOf;
using tests::Model;

// Runs the action in a process that ends like a killed one.
void crashAfter(const std::function<void()>& action) {
    static_cast<void>(std::fflush(nullptr));
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        action();
        static_cast<void>(std::fflush(nullptr));
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "an expectation of the child failed";
}

class FollowedPluginCrash : public FollowedPluginFixture {
  protected:
    void expectNextStart(const Model& services) {
        EXPECT_EQ(start(), "");
        expectEverywhere(services);
    }
};

// The record takes some pages, and the file less than one.
TEST_F(FollowedPluginCrash, FileFollowsInOneStepIfTheRecordCannotBeWritten) {
    keep({{1, "a"}});
    crashAfter([this] {
        start();
        const ino_t inode = tests::inodeOf(host_.path());
        static const tests::LongestFile longest(3000);  // never ends
        host_.change({{2, "b"}});
        EXPECT_FALSE(host_.recorder().state()->isKept);
        EXPECT_EQ(followed_->update(), "");
        EXPECT_EQ(host_.content(), zonedFileOf({{1, "a"}, {2, "b"}}));
        EXPECT_NE(tests::inodeOf(host_.path()), inode);
        EXPECT_EQ(tests::servicesIn(*plugin_), host_.directory());
    });
    // The change was not kept, but its file is whole.
    expectNextStart({{1, "a"}, {2, "b"}});
}

TEST_F(FollowedPluginCrash, NothingIsSavedIfNeitherRecordNorFileCanBeWritten) {
    keep({{1, "a"}, {2, "b"}});
    crashAfter([this] {
        start();
        static const tests::LongestFile longest(host_.content().size() - 20);  // never ends
        host_.change({{1, "A"}, {3, "c"}});
        EXPECT_THAT(followed_->update(), AllOf(HasSubstr(host_.path()), HasSubstr("too large")));
        EXPECT_THAT(followed_->update(), HasSubstr("too large"));
        EXPECT_EQ(host_.content(), zonedFileOf({{1, "a"}, {2, "b"}}));
    });
    expectNextStart({{1, "a"}, {2, "b"}});
    EXPECT_EQ(host_.copiesAside(), 0);
}

// The restored backup would pass for an edit.
TEST_F(FollowedPluginCrash, NothingIsRestoredIfNeitherRecordNorFileCanBeWritten) {
    keep({{1, "a"}, {2, "b"}});
    crashAfter([this] {
        start();
        static const tests::LongestFile longest(host_.content().size() - 20);  // never ends
        tests::writeFile(host_.path(), "damaged");
        EXPECT_THAT(followed_->update(), AllOf(HasSubstr(host_.path()), HasSubstr("too large")));
        EXPECT_EQ(host_.content(), "damaged");
    });
    expectNextStart({{1, "a"}, {2, "b"}});
}

TEST_F(FollowedPluginCrash, RestoredBackupDoesNotPassForAnEdit) {
    keep({{1, "a"}, {2, "b"}});
    const std::string backup = readFile(host_.backup());
    tests::writeFile(host_.path(), "damaged");
    tests::asOrdinaryUser(host_.files().path(""), [this] {
        const std::string config = host_.files().path("config");
        // The host is killed when the plug-in has restored the file.
        make([&] {
            plugin_->initialize();
            fs::permissions(config, fs::perms(0700));
            _exit(testing::Test::HasFailure() ? 1 : 0);
        });
        fs::permissions(config, fs::perms(0500));
        followed_->start();
    });
    EXPECT_EQ(host_.content(), backup);
    expectNextStart({{1, "a"}, {2, "b"}});
}

TEST_F(FollowedPluginCrash, PluginFollowsIfNothingCanBeWritten) {
    keep({{1, "a"}});
    tests::asOrdinaryUser(host_.files().path(""), [this] {
        start();
        static const tests::LongestFile longest(3000);  // never ends
        fs::permissions(host_.path(), fs::perms(0400));
        host_.change({{2, "b"}});
        EXPECT_EQ(followed_->update(), host_.path() + " cannot be written: Permission denied");
        EXPECT_EQ(tests::servicesIn(*plugin_), host_.directory());
        EXPECT_EQ(host_.content(), zonedFileOf({{1, "a"}}));
    });
}

TEST_F(FollowedPluginCrash, FileFollowsIfNoRecordCanBeMade) {
    tests::writeFile(host_.path(), fileOf({{1, "a"}}));
    tests::asOrdinaryUser(host_.files().path(""), [this] {
        fs::permissions(host_.files().path("config"), fs::perms(0500));
        EXPECT_EQ(start(), "");
        EXPECT_FALSE(host_.recorder().state()->isKept);
        host_.change({{2, "b"}});
        EXPECT_EQ(followed_->update(), "");
        EXPECT_EQ(host_.content(), fileOf({{1, "a"}, {2, "b"}}));
        fs::permissions(host_.files().path("config"), fs::perms(0700));
    });
}

// Changes services, update by update, and writes the last revision that was acknowledged and
// followed to a pipe, until the process is killed.
[[noreturn]] void changeForEver(tests::FollowedHost& host, FollowedPlugin& followed, int pipe) {
    std::mt19937 random(static_cast<unsigned>(getpid()));
    for (int step = 0;; ++step) {
        const auto id = static_cast<int32_t>(random() % 400);
        const std::string address = "/run/" + std::to_string(step) +
                                    std::string(random() % 60, static_cast<char>('a' + step % 26));
        host.change({{id, random() % 3 == 0 ? nullptr : address.c_str()}});
        const int64_t revision = host.recorder().state()->snapshot->revision();
        if (write(pipe, &revision, sizeof revision) != sizeof revision) {
            _exit(3);
        }
        if (!followed.update().empty()) {
            _exit(4);
        }
    }
}

TEST_F(FollowedPluginCrash, KilledHostLeavesTheDirectoryOfItsRecord) {
    Model services;
    for (int id = 0; id < 300; ++id) {
        services[id] = "/run/service" + std::to_string(id);
    }
    keep(services);
    std::mt19937 random(1);
    for (int round = 0; round < 25; ++round) {
        int ends[2] = {-1, -1};
        ASSERT_EQ(pipe(ends), 0);
        static_cast<void>(std::fflush(nullptr));
        const pid_t child = fork();
        ASSERT_NE(child, -1);
        if (child == 0) {
            close(ends[0]);
            if (!start().empty()) {
                _exit(5);
            }
            changeForEver(host_, *followed_, ends[1]);
        }
        close(ends[1]);
        // Some revisions are waited for, so that the child is in the middle of its work.
        int64_t acknowledged = 0;
        for (unsigned wait = 1 + random() % 6; wait > 0; --wait) {
            ASSERT_EQ(read(ends[0], &acknowledged, sizeof acknowledged),
                      static_cast<ssize_t>(sizeof acknowledged));
        }
        usleep(random() % 8000);
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << status;
        int64_t later = 0;
        while (read(ends[0], &later, sizeof later) == static_cast<ssize_t>(sizeof later)) {
            acknowledged = later;
        }
        close(ends[0]);

        host_.openRecord();
        const Model recorded = host_.directory();
        EXPECT_GE(host_.recorder().state()->snapshot->revision(), acknowledged);
        host_.closeRecord();
        EXPECT_EQ(start(), "");
        expectEverywhere(recorded);
        end();
    }
}

}  // namespace
}  // namespace qv::host
