// SPDX-License-Identifier: Apache-2.0

// Brings plug-in and file up to a directory that changes.
#include <QvFrame.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <string>

#include "qvhost/FakePluginControl.h"
#include "qvhost/server/FollowedPluginFixture.h"
#include "server/PluginError.h"
#include "support/FileModes.h"
#include "support/OtherUser.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tests::fileOf;
using tests::Model;

class FollowedPluginUpdate : public FollowedPluginFixture {
  protected:
    FollowedPluginUpdate() { tests::writeFile(host_.path(), tests::document("")); }
};

TEST_F(FollowedPluginUpdate, FileFollowsRegistrationsAndWithdrawals) {
    EXPECT_EQ(start(), "");
    EXPECT_EQ(update({{7, "a"}, {-2, "b"}}), "");
    EXPECT_EQ(host_.content(), fileOf({{-2, "b"}, {7, "a"}}));
    EXPECT_EQ(update({{7, nullptr}, {8, "c"}, {-2, "d"}}), "");
    EXPECT_EQ(host_.content(), fileOf({{-2, "d"}, {8, "c"}}));
    expectEverywhere({{-2, "d"}, {8, "c"}});
    EXPECT_EQ(followed_->fileRevision(), 2);
    EXPECT_EQ(host_.copiesAside(), 0);
}

TEST_F(FollowedPluginUpdate, WithdrawalAloneReachesTheFile) {
    start();
    update({{1, "a"}, {2, "b"}, {3, "c"}});
    const ino_t inode = tests::inodeOf(host_.path());
    EXPECT_EQ(update({{3, nullptr}}), "");
    EXPECT_EQ(host_.content(), fileOf({{1, "a"}, {2, "b"}}));
    EXPECT_EQ(update({{1, nullptr}}), "");
    EXPECT_EQ(host_.content(), fileOf({{2, "b"}}));
    expectEverywhere({{2, "b"}});
    // The plug-in saved it.
    EXPECT_EQ(tests::inodeOf(host_.path()), inode);
}

TEST_F(FollowedPluginUpdate, DirectoryWithoutServicesReachesTheFile) {
    tests::writeFile(host_.path(), tests::document(kZone));
    start();
    update({{1, "a"}, {2, "b"}});
    EXPECT_EQ(update({{1, nullptr}, {2, nullptr}}), "");
    EXPECT_EQ(host_.content(),
              tests::document(std::string("\t<key>Address</key>\n\t<dict/>\n") + kZone));
    expectEverywhere({});
    EXPECT_EQ(update({{3, "c"}}), "");
    EXPECT_EQ(host_.content(), tests::document(tests::entryOf({{3, "c"}}) + kZone));
    expectEverywhere({{3, "c"}});
}

TEST_F(FollowedPluginUpdate, NothingIsWrittenIfNothingChanged) {
    start();
    update({{1, "a"}});
    const struct stat before = tests::statusOf(host_.path());
    EXPECT_EQ(update(), "");
    EXPECT_EQ(update({{2, "b"}, {2, nullptr}}), "");
    EXPECT_EQ(tests::statusOf(host_.path()).st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    EXPECT_EQ(tests::inodeOf(host_.path()), before.st_ino);
}

TEST_F(FollowedPluginUpdate, MissingFileIsWrittenAnewWithItsOtherKeys) {
    tests::writeFile(host_.path(), tests::document(kZone));
    start();
    update({{1, "a"}});
    fs::remove(host_.path());
    EXPECT_EQ(update(), "");
    EXPECT_EQ(host_.content(), tests::document(tests::entryOf({{1, "a"}}) + kZone));
    EXPECT_EQ(tests::modeOf(host_.path()), 0600U);
    fs::remove(host_.path());
    EXPECT_EQ(update({{2, "b"}}), "");
    expectEverywhere({{1, "a"}, {2, "b"}});
}

TEST_F(FollowedPluginUpdate, DamagedFileNeverReplacesTheBackup) {
    tests::writeFile(host_.path(), tests::document(kZone));
    start();
    update({{1, "a"}});
    update({{2, "b"}});
    const std::string good = tests::contentOf(host_.backup()).value();
    host_.lines();
    tests::writeFile(host_.path(), "damaged");
    EXPECT_EQ(update({{3, "c"}}), "");
    EXPECT_EQ(host_.content(),
              tests::document(tests::entryOf({{1, "a"}, {2, "b"}, {3, "c"}}) + kZone));
    EXPECT_EQ(tests::contentOf(host_.backup()), good);
    expectEverywhere({{1, "a"}, {2, "b"}, {3, "c"}});
    EXPECT_EQ(readFile(host_.aside(1)), "damaged");
    EXPECT_THAT(host_.lines(), ElementsAre(AllOf(HasSubstr("changed while the host ran"),
                                                 HasSubstr(host_.aside(1))),
                                           HasSubstr("wrote " + host_.path() + " with 3 services"),
                                           HasSubstr("started with 3 services; 0 added")));
}

TEST_F(FollowedPluginUpdate, DamagedFileIsRepairedWithoutAChange) {
    start();
    update({{1, "a"}});
    tests::writeFile(host_.path(), "");
    EXPECT_FALSE(followed_->isAsRead());
    EXPECT_EQ(update(), "");
    EXPECT_TRUE(followed_->isAsRead());
    expectEverywhere({{1, "a"}});
}

TEST_F(FollowedPluginUpdate, EditWhileTheHostRunsIsKeptAsideAndOverwritten) {
    start();
    update({{1, "a"}, {2, "b"}});
    const std::string edited = fileOf({{1, "edited"}});
    tests::writeFile(host_.path(), edited);
    EXPECT_EQ(update(), "");
    expectEverywhere({{1, "a"}, {2, "b"}});
    EXPECT_EQ(readFile(host_.aside(1)), edited);
    tests::replaceFile(host_.path(), edited);
    EXPECT_EQ(update({{3, "c"}}), "");
    expectEverywhere({{1, "a"}, {2, "b"}, {3, "c"}});
    EXPECT_EQ(readFile(host_.aside(2)), edited);
    EXPECT_EQ(host_.copiesAside(), 2);
}

TEST_F(FollowedPluginUpdate, EditOfAFileWithoutServicesIsOverwritten) {
    start();
    tests::writeFile(host_.path(), fileOf({{1, "edited"}}));
    EXPECT_EQ(update(), "");
    expectEverywhere({});
}

// The plug-in restores the file from its backup, and that is brought up.
TEST_F(FollowedPluginUpdate, DamagedFileIsLeftToThePluginIfTheHostCannotReplaceIt) {
    tests::asOrdinaryUser(host_.files().path(""), [this] {
        start();
        update({{1, "a"}});
        update({{2, "b"}});
        tests::writeFile(host_.path(), "damaged");
        fs::permissions(fs::path(host_.path()).parent_path(), fs::perms(0500));
        EXPECT_EQ(update({{3, "c"}}), "");
        expectEverywhere({{1, "a"}, {2, "b"}, {3, "c"}});
        host_.lines();
        EXPECT_EQ(update({{4, "d"}}), "");
        EXPECT_THAT(host_.lines(), IsEmpty()) << "the plug-in was restarted in vain";
        fs::permissions(fs::path(host_.path()).parent_path(), fs::perms(0700));
    });
}

TEST_F(FollowedPluginUpdate, FileThatMayNotBeWrittenIsAProblemAndThePluginFollows) {
    tests::asOrdinaryUser(host_.files().path(""), [this] {
        tests::writeFile(host_.path(), fileOf({{1, "a"}}));
        start();
        const std::string before = host_.content();
        fs::permissions(host_.path(), fs::perms(0400));
        for (const auto& changes : {tests::Changes{{2, "b"}}, tests::Changes{{1, nullptr}}}) {
            EXPECT_EQ(update(changes), host_.path() + " cannot be written: Permission denied");
            EXPECT_EQ(tests::servicesIn(*plugin_), host_.directory());
        }
        EXPECT_EQ(update({{2, nullptr}}), host_.path() + " cannot be written: Permission denied");
        EXPECT_THAT(tests::servicesIn(*plugin_), IsEmpty());
        EXPECT_EQ(host_.content(), before);
        EXPECT_EQ(tests::modeOf(host_.path()), 0400U);
        host_.lines();
        update({{3, "c"}});
        EXPECT_THAT(host_.lines(), IsEmpty()) << "the plug-in was restarted in vain";
        fs::permissions(host_.path(), fs::perms(0600));
        EXPECT_EQ(update(), "");
        expectEverywhere({{3, "c"}});
    });
}

TEST_F(FollowedPluginUpdate, DirectoryThatMayNotBeWrittenIsAProblemAndThePluginFollows) {
    tests::asOrdinaryUser(host_.files().path(""), [this] {
        start();
        update({{1, "a"}});
        fs::remove(host_.path());
        fs::permissions(fs::path(host_.path()).parent_path(), fs::perms(0500));
        const std::string problem = update({{2, "b"}});
        EXPECT_THAT(problem, AllOf(HasSubstr(host_.path()), HasSubstr("Permission denied")));
        EXPECT_EQ(tests::servicesIn(*plugin_), host_.directory());
        fs::permissions(fs::path(host_.path()).parent_path(), fs::perms(0700));
        EXPECT_EQ(mkfifo(host_.path().c_str(), 0600), 0);
        EXPECT_THAT(update(), HasSubstr("is no property list"));
        fs::remove(host_.path());
        EXPECT_EQ(update(), "");
        expectEverywhere({{1, "a"}, {2, "b"}});
    });
}

TEST_F(FollowedPluginUpdate, PipeInPlaceOfTheFileIsAProblemAndThePluginFollows) {
    start();
    update({{1, "a"}});
    fs::remove(host_.path());
    ASSERT_EQ(mkfifo(host_.path().c_str(), 0600), 0);
    host_.lines();
    EXPECT_THAT(update({{2, "b"}}), HasSubstr(host_.path() + " is no property list"));
    EXPECT_THAT(host_.lines(), IsEmpty()) << "the plug-in was restarted in vain";
    EXPECT_EQ(tests::servicesIn(*plugin_), host_.directory());
    EXPECT_TRUE(fs::is_fifo(host_.path()));
    fs::remove(host_.path());
    EXPECT_EQ(update(), "");
    expectEverywhere({{1, "a"}, {2, "b"}});
}

TEST_F(FollowedPluginUpdate, PluginThatFoundNoFileGetsOneThatAppears) {
    fs::remove(host_.path());
    ASSERT_EQ(mkfifo(host_.path().c_str(), 0600), 0);
    EXPECT_THAT(start(), HasSubstr("is no property list"));
    EXPECT_THAT(update({{1, "a"}}), HasSubstr("is no property list"));
    fs::remove(host_.path());
    tests::writeFile(host_.path(), tests::document(kZone));
    EXPECT_EQ(update(), "");
    EXPECT_EQ(host_.content(), tests::document(tests::entryOf({{1, "a"}}) + kZone));
    EXPECT_EQ(update({{2, "b"}}), "");
    expectEverywhere({{1, "a"}, {2, "b"}});
}

TEST_F(FollowedPluginUpdate, PathThatIsTooLongIsAProblemAndThePluginFollows) {
    host_.openRecord();
    plugin_ = std::make_unique<Plugin>(library_);
    followed_ = std::make_unique<FollowedPlugin>(
        *plugin_, StoredFile(""), host_.recorder(), [this] { plugin_->initialize(); },
        host_.report());
    EXPECT_EQ(followed_->start(), "the configuration file's path is too long");
    EXPECT_EQ(update({{1, "a"}}), "the configuration file's path is too long");
    EXPECT_EQ(tests::servicesIn(*plugin_), host_.directory());
}

TEST_F(FollowedPluginUpdate, LinkStaysWhenTheFileIsWritten) {
    fs::rename(host_.path(), host_.files().path("real"));
    fs::create_symlink(host_.files().path("real"), host_.path());
    start();
    update({{1, "a"}});
    EXPECT_EQ(update({{1, nullptr}}), "");
    EXPECT_TRUE(fs::is_symlink(host_.path()));
    EXPECT_EQ(readFile(host_.files().path("real")), fileOf(Model()));
}

// The fake plug-in always lists 5 and 6, and never saves.
class FollowedFakePlugin : public FollowedPluginFixture {
  protected:
    FollowedFakePlugin() : FollowedPluginFixture(QVHOST_FAKE_PLUGIN) {
        tests::writeFile(host_.path(), fileOf({{5, "a"}, {6, "b"}}));
    }

    FakePluginControl control_;
};

TEST_F(FollowedFakePlugin, SavesThatFailAreMadeUpForByTheHost) {
    EXPECT_EQ(start(), "");
    EXPECT_THAT(update({{7, "c"}}), HasSubstr("did not save the directory to " + host_.path()));
    EXPECT_TRUE(host_.recorder().fileNote().isBeingWritten);
    EXPECT_EQ(update(), "");
    EXPECT_EQ(host_.content(), fileOf({{5, "a"}, {6, "b"}, {7, "c"}}));
    EXPECT_FALSE(host_.recorder().fileNote().isBeingWritten);
}

TEST_F(FollowedFakePlugin, OnlyTheDifferenceIsSent) {
    start();
    update({{6, nullptr}, {7, "c"}});
    EXPECT_THAT(control_.record(),
                ElementsAre("initialize", "0202 ", "answer", "free", "0201 0a020806",
                            "0200 0a05080712"
                            "0163"));
}

TEST_F(FollowedFakePlugin, FailedRequestIsAProblemAndThePluginIsAskedAgain) {
    for (const char* behaviour : {"request throws text", "request throws bad_alloc",
                                  "request throws number", "request fails"}) {
        FakePluginControl::behave("");
        tests::writeFile(host_.path(), fileOf({{5, "a"}, {6, "b"}}));
        fs::remove(recordPathOf(host_.path()));
        EXPECT_EQ(start(), "");
        FakePluginControl::behave(behaviour);
        EXPECT_NE(update({{7, "c"}}), "") << behaviour;
        EXPECT_NE(update(), "") << behaviour;
        FakePluginControl::behave("");
        const std::size_t calls = control_.record().size();
        update();
        EXPECT_EQ(control_.record().at(calls), "0202 ") << behaviour;
        EXPECT_EQ(update(), "") << behaviour;
        EXPECT_EQ(host_.content(), fileOf({{5, "a"}, {6, "b"}, {7, "c"}})) << behaviour;
        end();
    }
}

TEST_F(FollowedFakePlugin, ProblemSaysWhatThePluginDid) {
    start();
    FakePluginControl::behave("request fails");
    EXPECT_THAT(update({{7, "c"}}), HasSubstr("command 0x0200: the plug-in answered 20006"));
    EXPECT_THAT(update(), HasSubstr("cannot ask the plug-in for its services: it answered 20006"));
    FakePluginControl::behave("request throws text");
    EXPECT_THAT(update(), HasSubstr("fail to get the lock"));
    FakePluginControl::behave("");
}

TEST_F(FollowedFakePlugin, AnswerThatIsNoListIsAProblem) {
    for (const char* behaviour : {"answers garbage", "answers and fails",
                                  "answers length without bytes", "request fails"}) {
        FakePluginControl::behave(behaviour);
        EXPECT_NE(start(), "") << behaviour;
        FakePluginControl::behave("");
        EXPECT_EQ(update(), "") << behaviour;
        end();
    }
}

TEST_F(FollowedFakePlugin, PluginThatCannotBeStartedIsReported) {
    FakePluginControl::behave("initialize throws text");
    EXPECT_THROW(start(), PluginError);
    EXPECT_THAT(update(), HasSubstr("cannot initialise"));
    FakePluginControl::behave("");
    EXPECT_EQ(update(), "");
    expectEverywhere({{5, "a"}, {6, "b"}});
    EXPECT_EQ(host_.copiesAside(), 0);
}

TEST_F(FollowedFakePlugin, EditOfAFileWhosePluginIsDownIsKeptAside) {
    start();
    FakePluginControl::behave("initialize throws text");
    EXPECT_THROW(followed_->start(), PluginError);
    const std::string edited = fileOf({{1, "edited"}});
    tests::writeFile(host_.path(), edited);
    EXPECT_THAT(update(), HasSubstr("cannot initialise"));
    EXPECT_EQ(readFile(host_.aside(1)), edited);
    FakePluginControl::behave("");
    EXPECT_EQ(update(), "");
    EXPECT_EQ(host_.copiesAside(), 1);
}

TEST_F(FollowedFakePlugin, LevelHoldsAcrossARepairAndEndsWithAStart) {
    start();
    EXPECT_EQ(followed_->setLevel("\x0a\x01").code, uint32_t{QV_OK});
    FakePluginControl::behave("request fails");
    EXPECT_EQ(followed_->setLevel("refused").code, uint32_t{QV_ERROR_NO_MEMORY});
    FakePluginControl::behave("");
    tests::writeFile(host_.path(), "damaged");
    std::size_t calls = control_.record().size();
    EXPECT_EQ(update(), "");
    std::vector<std::string> record = control_.record();
    record.erase(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(calls));
    EXPECT_THAT(record,
                ElementsAre("finalize", "initialize", "0102 0a01", "0202 ", "answer", "free"));

    calls = control_.record().size();
    EXPECT_EQ(followed_->start(), "");
    tests::writeFile(host_.path(), "damaged");
    EXPECT_EQ(update(), "");
    record = control_.record();
    record.erase(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(calls));
    EXPECT_THAT(record, Not(Contains(testing::StartsWith("0102"))));
}

TEST_F(FollowedFakePlugin, FailureOfTheLevelCommandIsToldToTheClient) {
    start();
    FakePluginControl::behave("request throws text");
    Outcome outcome = followed_->setLevel("x");
    EXPECT_EQ(outcome.code, uint32_t{QV_HOST_ERROR_PLUGIN});
    EXPECT_THAT(outcome.bytes, HasSubstr("fail to get the lock"));
    FakePluginControl::behave("");
    followed_->finalize();
    outcome = followed_->setLevel("x");
    EXPECT_EQ(outcome.code, uint32_t{QV_HOST_ERROR_PLUGIN});
    EXPECT_THAT(outcome.bytes, HasSubstr("not initialised"));
}

TEST_F(FollowedFakePlugin, FinalizationThatFailsIsReportedOnly) {
    start();
    FakePluginControl::behave("finalize throws text");
    tests::writeFile(host_.path(), "damaged");
    EXPECT_EQ(update(), "");
    EXPECT_THAT(host_.lines(), Contains(HasSubstr("cannot finalise")));
    followed_->finalize();
    EXPECT_THAT(host_.lines(), Contains(HasSubstr("cannot finalise")));
    FakePluginControl::behave("");
}

}  // namespace
}  // namespace qv::host
