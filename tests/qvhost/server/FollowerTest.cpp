// SPDX-License-Identifier: Apache-2.0

#include "server/Follower.h"

#include <QvFrame.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KevraCommonMsg.pb.h"
#include "qvhost/FakePluginControl.h"
#include "qvhost/server/FollowedHost.h"
#include "server/PluginError.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::SizeIs;
using tests::fileOf;
using tests::Model;

constexpr std::chrono::hours kNever(1);

// A turn follows a change at once, and a failed one is only repeated if somebody waits for it.
constexpr Pace::Settings kEager = {milliseconds(0), 0, kNever, kNever};
constexpr Pace::Settings kRetrying = {milliseconds(0), 0, milliseconds(1), milliseconds(1)};
constexpr Pace::Settings kSlow = {kNever, 0, kNever, kNever};

class FollowerTest : public testing::Test {
  protected:
    explicit FollowerTest(const std::string& library = QV_PLUGIN_FILE) : library_(library) {
        tests::writeFile(host_.path(), tests::document(""));
    }
    void TearDown() override { end(); }

    Follower& make(const Pace::Settings& pace) {
        end();
        Recorder& recorder = host_.openRecord([this] {
            if (follower_ != nullptr) {
                follower_->published();
            }
        });
        plugin_ = std::make_unique<Plugin>(library_);
        follower_ = std::make_unique<Follower>(
            *plugin_, StoredFile(host_.path()), recorder, [this] { plugin_->initialize(); },
            host_.report(), pace);
        return *follower_;
    }
    Follower& start(const Pace::Settings& pace = kEager) {
        make(pace).start();
        return *follower_;
    }
    void end() {
        if (follower_ != nullptr) {
            follower_->stop();
        }
        host_.closeRecord();
        follower_.reset();
        plugin_.reset();
    }

    // The following wait for the answer.
    Outcome sync() const {
        return answerOf([this](Follower::Answer answer) { follower_->sync(std::move(answer)); });
    }
    Outcome setLevel(const std::string& input) const {
        return answerOf(
            [&](Follower::Answer answer) { follower_->setLevel(input, std::move(answer)); });
    }
    std::string reload() const {
        std::promise<std::string> promise;
        follower_->reload([&](std::string problem) { promise.set_value(std::move(problem)); });
        return promise.get_future().get();
    }

    template <class Action>
    static Outcome answerOf(Action action) {
        std::promise<Outcome> promise;
        action([&](Outcome outcome) { promise.set_value(std::move(outcome)); });
        return promise.get_future().get();
    }

    void expectSync() const {
        const Outcome outcome = sync();
        EXPECT_EQ(outcome.code, uint32_t{QV_OK}) << outcome.bytes;
        EXPECT_EQ(follower_->statistics().fileRevision,
                  host_.recorder().state()->snapshot->revision());
        EXPECT_EQ(follower_->statistics().problem, "");
        EXPECT_EQ(follower_->statistics().behindSince, std::nullopt);
    }

    const std::string library_;
    tests::FollowedHost host_;
    std::unique_ptr<Plugin> plugin_;
    std::unique_ptr<Follower> follower_;
};

std::string levelMessage(int level) {
    qor::kevra::DebugOption option;
    option.set_plugins(QV_PLUGIN_ID_NAMING_SERVICE);
    option.set_debug_level(level);
    return option.SerializeAsString();
}

TEST_F(FollowerTest, PublishedChangesReachTheFile) {
    start();
    for (int id = 1; id <= 20; ++id) {
        host_.change({{id, "a"}, {id - 1, nullptr}});
    }
    expectSync();
    EXPECT_EQ(host_.content(), fileOf({{20, "a"}}));
    EXPECT_GE(follower_->statistics().saves, 2U);
    EXPECT_GT(follower_->statistics().longest.count(), 0);
    EXPECT_EQ(follower_->statistics().since, std::nullopt);
}

TEST_F(FollowerTest, StartIsToldInOneLine) {
    tests::writeFile(host_.path(), fileOf({{1, "a"}}));
    start();
    EXPECT_THAT(follower_->statistics().start,
                AllOf(HasSubstr("read " + host_.path() + ": 1 added"), HasSubstr("; the plug-in")));
}

TEST_F(FollowerTest, SyncFailsWithTheReasonAndWorksAgain) {
    start();
    fs::remove(host_.path());
    ASSERT_EQ(mkfifo(host_.path().c_str(), 0600), 0);
    EXPECT_EQ(follower_->statistics().behindSince, std::nullopt);
    EXPECT_EQ(sync().code, uint32_t{QV_HOST_ERROR_FILE});
    EXPECT_NE(follower_->statistics().behindSince, std::nullopt);
    host_.change({{1, "a"}});
    for (int attempt = 0; attempt < 2; ++attempt) {
        const Outcome outcome = sync();
        EXPECT_EQ(outcome.code, uint32_t{QV_HOST_ERROR_FILE});
        EXPECT_THAT(outcome.bytes, HasSubstr(host_.path() + " is no property list"));
    }
    EXPECT_THAT(follower_->statistics().problem, HasSubstr("is no property list"));
    EXPECT_NE(follower_->statistics().behindSince, std::nullopt);
    fs::remove(host_.path());
    expectSync();
    EXPECT_EQ(host_.content(), fileOf({{1, "a"}}));
    const std::vector<std::string> lines = host_.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) {
                                return line.find("does not follow") != std::string::npos;
                            }),
              1);
    EXPECT_THAT(lines, Contains("the directory is in its file again: " + host_.path()));
}

TEST_F(FollowerTest, SyncNoticesAFileThatSomebodyChanged) {
    start();
    host_.change({{1, "a"}});
    expectSync();
    fs::remove(host_.path());
    expectSync();
    EXPECT_EQ(host_.content(), fileOf({{1, "a"}}));
    tests::writeFile(host_.path(), "damaged");
    expectSync();
    EXPECT_EQ(host_.content(), fileOf({{1, "a"}}));
}

TEST_F(FollowerTest, FailedTurnIsRepeated) {
    start(kRetrying);
    fs::remove(host_.path());
    ASSERT_EQ(mkfifo(host_.path().c_str(), 0600), 0);
    host_.change({{1, "a"}});
    EXPECT_EQ(sync().code, uint32_t{QV_HOST_ERROR_FILE});
    fs::remove(host_.path());
    while (!follower_->statistics().problem.empty()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(host_.content(), fileOf({{1, "a"}}));
}

TEST_F(FollowerTest, ReloadAdoptsAnEdit) {
    start();
    host_.change({{1, "a"}});
    expectSync();
    tests::writeFile(host_.path(), fileOf({{2, "edited"}}));
    EXPECT_EQ(reload(), "");
    EXPECT_EQ(host_.directory(), (Model{{2, "edited"}}));
    EXPECT_THAT(follower_->statistics().start, HasSubstr("was edited and counts"));
}

TEST_F(FollowerTest, ReloadTellsWhyTheFileDoesNotFollow) {
    start();
    fs::remove(host_.path());
    fs::create_directory(host_.path());
    EXPECT_THAT(reload(), HasSubstr("is no property list"));
}

TEST_F(FollowerTest, LevelIsSetInThePlugin) {
    start();
    EXPECT_EQ(setLevel(levelMessage(7)).code, uint32_t{QV_OK});
    EXPECT_EQ(setLevel(levelMessage(99)).code, uint32_t{QV_ERROR_ARGUMENT});
    EXPECT_EQ(follower_->statistics().level, 7);
    host_.change({{1, "logged"}});
    expectSync();
    EXPECT_THAT(readFile(host_.files().path("log/namingService.log")), HasSubstr("logged"));
    EXPECT_EQ(reload(), "");
    EXPECT_EQ(follower_->statistics().level, std::nullopt);
}

TEST_F(FollowerTest, ChangesWithinThePauseWaitAndTheEndSavesThem) {
    start(kSlow);
    host_.change({{1, "a"}});
    // The thread carries out a level between turns. A turn that was due would come first.
    setLevel(levelMessage(6));
    setLevel(levelMessage(6));
    EXPECT_EQ(host_.content(), tests::document(""));
    EXPECT_NE(follower_->statistics().behindSince, std::nullopt);
    follower_->stop();
    EXPECT_EQ(host_.content(), fileOf({{1, "a"}}));
}

TEST_F(FollowerTest, AfterTheEndEverybodyIsAnswered) {
    start();
    std::vector<std::future<Outcome>> answers;
    std::vector<std::promise<Outcome>> promises(20);
    for (std::promise<Outcome>& promise : promises) {
        answers.push_back(promise.get_future());
        follower_->sync([&promise](Outcome outcome) { promise.set_value(std::move(outcome)); });
    }
    follower_->stop();
    for (std::future<Outcome>& answer : answers) {
        const Outcome outcome = answer.get();
        EXPECT_TRUE(outcome.code == QV_OK || outcome.code == QV_HOST_ERROR_STOPPING);
    }
    EXPECT_EQ(sync().code, uint32_t{QV_HOST_ERROR_STOPPING});
    EXPECT_EQ(setLevel("x").code, uint32_t{QV_HOST_ERROR_STOPPING});
    EXPECT_NE(reload(), "");
    follower_->published();
    follower_->stop();
}

TEST_F(FollowerTest, ThreadsMayDoEverythingAtOnce) {
    start();
    std::vector<std::thread> threads;
    threads.emplace_back([this] {
        for (int id = 0; id < 50; ++id) {
            host_.change({{id, "a"}});
        }
    });
    threads.emplace_back([this] {
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(sync().code, uint32_t{QV_OK});
        }
    });
    threads.emplace_back([this] {
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(reload(), "");
            EXPECT_EQ(setLevel(levelMessage(6)).code, uint32_t{QV_OK});
            static_cast<void>(follower_->statistics());
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    expectSync();
    EXPECT_THAT(host_.directory(), SizeIs(50));
    EXPECT_EQ(host_.content(), fileOf(host_.directory()));
}

// The fake plug-in always lists 5 and 6, and never saves. It reads from a file how to behave,
// because the follower's thread may call it at any time.
class FollowerOfFakePlugin : public FollowerTest {
  protected:
    FollowerOfFakePlugin() : FollowerTest(QVHOST_FAKE_PLUGIN) {
        tests::writeFile(host_.path(), fileOf({{5, "a"}, {6, "b"}}));
        behave("");
    }

    void behave(const std::string& behaviour) const {
        tests::replaceFile(host_.files().path("behaviour"), behaviour + "\n");
    }

    FakePluginControl control_{"@" + host_.files().path("behaviour")};
    const std::string pipe_ = host_.files().path("pipe");
    tests::EnvironmentVariable pipeVariable_{"QVHOST_FAKE_PIPE", pipe_};
};

TEST_F(FollowerOfFakePlugin, StartFailsIfThePluginCannotBeStarted) {
    behave("initialize throws text");
    EXPECT_THROW(make(kEager).start(), PluginError);
}

TEST_F(FollowerOfFakePlugin, ReloadThatFailsIsToldAndRepeated) {
    start();
    behave("initialize throws text");
    EXPECT_THAT(reload(), AllOf(HasSubstr("cannot initialise"), HasSubstr("fail to get the lock")));
    EXPECT_THAT(follower_->statistics().problem, HasSubstr("cannot initialise"));
    EXPECT_EQ(setLevel("x").code, uint32_t{QV_HOST_ERROR_PLUGIN});
    EXPECT_EQ(sync().code, uint32_t{QV_HOST_ERROR_FILE});
    behave("");
    expectSync();
    EXPECT_EQ(setLevel("x").code, uint32_t{QV_OK});
}

TEST_F(FollowerOfFakePlugin, ReloadsThatWaitAreOne) {
    start();
    ASSERT_EQ(mkfifo(pipe_.c_str(), 0600), 0);
    behave("request waits at the pipe");
    std::promise<Outcome> level;
    follower_->setLevel("x", [&](Outcome outcome) { level.set_value(std::move(outcome)); });
    const int descriptor = open(pipe_.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_NE(descriptor, -1);
    std::vector<std::promise<std::string>> reloads(3);
    for (std::promise<std::string>& reload : reloads) {
        follower_->reload([&reload](std::string problem) { reload.set_value(std::move(problem)); });
    }
    behave("");
    close(descriptor);
    for (std::promise<std::string>& reload : reloads) {
        EXPECT_EQ(reload.get_future().get(), "");
    }
    const std::vector<std::string> record = control_.record();
    EXPECT_EQ(std::count(record.begin(), record.end(), "initialize"), 2);
}

TEST_F(FollowerOfFakePlugin, FailedRequestsAreMadeUpFor) {
    start(kRetrying);
    behave("request throws bad_alloc");
    host_.change({{7, "c"}});
    const Outcome outcome = sync();
    EXPECT_EQ(outcome.code, uint32_t{QV_HOST_ERROR_FILE});
    EXPECT_THAT(outcome.bytes, HasSubstr("out of memory"));
    behave("");
    while (!follower_->statistics().problem.empty()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(host_.content(), fileOf({{5, "a"}, {6, "b"}, {7, "c"}}));
}

TEST_F(FollowerOfFakePlugin, AnswersOfTheLevelCommandAreThePlugins) {
    start();
    EXPECT_EQ(setLevel("\x01\x02").code, uint32_t{QV_OK});
    EXPECT_THAT(control_.record(), Contains("0102 0102"));
    behave("request fails strangely");
    EXPECT_EQ(setLevel("x").code, 77U);
    behave("request throws number");
    EXPECT_EQ(setLevel("x").code, uint32_t{QV_HOST_ERROR_PLUGIN});
}

}  // namespace
}  // namespace qv::host
