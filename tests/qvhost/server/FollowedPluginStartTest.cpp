// SPDX-License-Identifier: Apache-2.0

// Starts a host with every combination of record and file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "qvhost/server/FollowedPluginFixture.h"
#include "support/OtherUser.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tests::fileOf;
using tests::Model;

class FollowedPluginStart : public FollowedPluginFixture {
  protected:
    // Changes the record only, as a host that is killed before the file follows.
    void changeRecord(const tests::Changes& changes) {
        host_.openRecord();
        host_.change(changes);
        host_.closeRecord();
    }
    void noteThatTheFileIsBeingWritten() {
        Recorder& recorder = host_.openRecord();
        FileNote note = recorder.fileNote();
        note.isBeingWritten = true;
        ASSERT_TRUE(recorder.note(note));
        host_.closeRecord();
    }

    // Starts a host and expects that record, file and plug-in hold these services, also at the next
    // start, which changes nothing.
    void expectStart(const Model& services, const std::string& otherKeys = kZone) {
        EXPECT_EQ(start(), "");
        expectEverywhere(services);
        const std::string file = host_.content();
        if (!services.empty()) {
            EXPECT_EQ(file, tests::document(tests::entryOf({services.begin(), services.end()}) +
                                            otherKeys));
        }
        lines_ = host_.lines();
        const int copies = host_.copiesAside();
        const int64_t revision = host_.recorder().state()->snapshot->revision();
        EXPECT_EQ(start(), "");
        expectEverywhere(services);
        EXPECT_EQ(host_.content(), file);
        EXPECT_EQ(host_.copiesAside(), copies);
        EXPECT_EQ(host_.recorder().state()->snapshot->revision(), revision);
    }

    std::vector<std::string> lines_;  // of the start
};

// Without a record.

TEST_F(FollowedPluginStart, FileCountsWithoutARecord) {
    tests::writeFile(host_.path(), zonedFileOf({{1, "a"}, {2, "b"}}));
    expectStart({{1, "a"}, {2, "b"}});
    EXPECT_THAT(lines_, Contains(HasSubstr("read " + host_.path() + ": 2 added")));
    EXPECT_EQ(host_.copiesAside(), 0);
}

TEST_F(FollowedPluginStart, BackupCountsWithoutARecordAndAGoodFile) {
    tests::writeFile(host_.backup(), zonedFileOf({{1, "a"}}));
    expectStart({{1, "a"}});
    EXPECT_THAT(lines_, Contains(AllOf(HasSubstr("does not exist; read its backup"),
                                       HasSubstr("1 added, 0 changed, 0 withdrawn"))));
}

TEST_F(FollowedPluginStart, DamagedFileWithoutARecordIsKeptAside) {
    tests::writeFile(host_.path(), "damaged");
    tests::writeFile(host_.backup(), zonedFileOf({{1, "a"}}));
    expectStart({{1, "a"}});
    EXPECT_EQ(readFile(host_.aside(1)), "damaged");
    EXPECT_EQ(readFile(host_.backup()), zonedFileOf({{1, "a"}}));
}

TEST_F(FollowedPluginStart, FileIsMadeIfThereIsNothing) {
    expectStart({});
    EXPECT_EQ(host_.content(), fileOf({}));
    EXPECT_THAT(lines_, Contains(HasSubstr("wrote " + host_.path() + " with 0 services")));
}

TEST_F(FollowedPluginStart, DamagedFileAndBackupWithoutARecordLeaveNothing) {
    tests::writeFile(host_.path(), "damaged");
    tests::writeFile(host_.backup(), "damaged, too");
    expectStart({});
    EXPECT_EQ(readFile(host_.aside(1)), "damaged");
}

// With a record whose directory the file held.

TEST_F(FollowedPluginStart, CleanEndLeavesNothingToDo) {
    keep({{1, "a"}, {2, "b"}});
    const ino_t inode = tests::inodeOf(host_.path());
    expectStart({{1, "a"}, {2, "b"}});
    EXPECT_EQ(tests::inodeOf(host_.path()), inode);
    EXPECT_EQ(host_.copiesAside(), 0);
    EXPECT_THAT(lines_, ElementsAre("the plug-in started with 2 services; 0 added, 0 changed, "
                                    "0 withdrawn"));
    EXPECT_EQ(followed_->summary(), lines_.front());
}

TEST_F(FollowedPluginStart, EditedFileCountsAndTheFormerListIsKeptAside) {
    keep({{1, "a"}, {2, "b"}});
    tests::writeFile(host_.path(), fileOf({{1, "edited"}, {3, "c"}, {4, "d"}}));
    expectStart({{1, "edited"}, {3, "c"}, {4, "d"}}, "");
    EXPECT_EQ(readFile(host_.aside(1)), zonedFileOf({{1, "a"}, {2, "b"}}));
    EXPECT_THAT(lines_,
                Contains(AllOf(HasSubstr("was edited and counts"), HasSubstr(host_.aside(1)),
                               HasSubstr("2 added, 1 changed, 1 withdrawn"))));
}

TEST_F(FollowedPluginStart, EditOfOtherKeysIsTaken) {
    keep({{1, "a"}});
    tests::writeFile(host_.path(), fileOf({{1, "a"}}));
    expectStart({{1, "a"}}, "");
    EXPECT_EQ(host_.copiesAside(), 0);
    fs::remove(host_.path());
    expectStart({{1, "a"}}, "");
}

TEST_F(FollowedPluginStart, FileThatNoLongerListsServicesDoesNotCount) {
    keep({{1, "a"}});
    for (const std::string& content :
         {tests::document(kZone), tests::document("\t<key>Address</key>\n\t<dict/>\n"),
          tests::document("<key>Address</key><dict><key>services</key><array><dict/></array>"
                          "</dict>")}) {
        end();
        tests::writeFile(host_.path(), content);
        EXPECT_EQ(start(), "");
        expectEverywhere({{1, "a"}});
    }
    EXPECT_EQ(host_.copiesAside(), 3);
}

TEST_F(FollowedPluginStart, EmptiedListCounts) {
    keep({{1, "a"}});
    tests::writeFile(host_.path(),
                     tests::document("<key>Address</key><dict><key>services</key><array/></dict>"));
    expectStart({});
    EXPECT_EQ(readFile(host_.aside(1)), zonedFileOf({{1, "a"}}));
}

TEST_F(FollowedPluginStart, DamagedFileIsWrittenFromTheRecord) {
    keep({{1, "a"}, {2, "b"}});
    const std::string backup = readFile(host_.backup());
    tests::writeFile(host_.path(), "damaged");
    expectStart({{1, "a"}, {2, "b"}});
    EXPECT_EQ(readFile(host_.aside(1)), "damaged");
    EXPECT_EQ(readFile(host_.backup()), backup);
    EXPECT_THAT(lines_, Contains(HasSubstr("is damaged and does not count")));
}

TEST_F(FollowedPluginStart, MissingFileIsWrittenFromTheRecord) {
    keep({{1, "a"}, {2, "b"}});
    fs::remove(host_.path());
    expectStart({{1, "a"}, {2, "b"}});
    EXPECT_EQ(host_.copiesAside(), 0);
}

TEST_F(FollowedPluginStart, MixtureDoesNotCount) {
    keep({{1, "a"}, {2, "b"}});
    noteThatTheFileIsBeingWritten();
    const std::string mixture = zonedFileOf({{1, "b"}});
    tests::writeFile(host_.path(), mixture);
    expectStart({{1, "a"}, {2, "b"}});
    EXPECT_EQ(readFile(host_.aside(1)), mixture);
    EXPECT_THAT(lines_, Contains(HasSubstr("was being written and does not count")));
}

// A write that is cut short ends in the bytes of the former file, which may lie in a value.
TEST_F(FollowedPluginStart, MixtureLosesNoPartOfAnotherKey) {
    keep({{1, "a"}});
    noteThatTheFileIsBeingWritten();
    changeRecord({{2, "b"}});
    const std::string mixture =
        tests::document(tests::entryOf({{1, "a"}, {2, "b"}}) + "\t<key>Zone</key>\n\t<string/>\n");
    tests::writeFile(host_.path(), mixture);
    expectStart({{1, "a"}, {2, "b"}});
    EXPECT_EQ(readFile(host_.aside(1)), mixture);
}

TEST_F(FollowedPluginStart, EditOfOtherKeysIsRememberedBeforeTheFirstSave) {
    keep({{1, "a"}});
    changeRecord({{2, "b"}});
    tests::writeFile(host_.path(), fileOf({{1, "a"}}));
    std::string otherKeys;
    host_.openRecord();
    plugin_ = std::make_unique<Plugin>(QV_PLUGIN_FILE);
    followed_ = std::make_unique<FollowedPlugin>(
        *plugin_, StoredFile(host_.path()), host_.recorder(),
        [&] {
            otherKeys = host_.recorder().fileNote().otherKeys;
            plugin_->initialize();
        },
        host_.report());
    EXPECT_EQ(followed_->start(), "");
    EXPECT_THAT(otherKeys, AllOf(HasSubstr("<dict/>"), Not(HasSubstr("Zone"))));
}

TEST_F(FollowedPluginStart, FileThatWasWrittenWholeNeedsNoCopy) {
    keep({{1, "a"}});
    noteThatTheFileIsBeingWritten();
    changeRecord({{2, "b"}});
    tests::writeFile(host_.path(), zonedFileOf({{1, "a"}, {2, "b"}}));
    expectStart({{1, "a"}, {2, "b"}});
    EXPECT_EQ(host_.copiesAside(), 0);
}

// With a record that is ahead of the file.

TEST_F(FollowedPluginStart, FileThatLagsIsBroughtUp) {
    keep({{1, "a"}, {2, "b"}});
    changeRecord({{2, nullptr}, {3, "c"}});
    const ino_t inode = tests::inodeOf(host_.path());
    expectStart({{1, "a"}, {3, "c"}});
    EXPECT_EQ(host_.copiesAside(), 0);
    EXPECT_EQ(tests::inodeOf(host_.path()), inode);
    EXPECT_THAT(lines_, ElementsAre("the plug-in started with 2 services; 1 added, 0 changed, "
                                    "1 withdrawn"));
}

TEST_F(FollowedPluginStart, WithdrawalsThatTheFileLacksAreMade) {
    keep({{1, "a"}, {2, "b"}});
    changeRecord({{2, nullptr}});
    expectStart({{1, "a"}});
    changeRecord({{1, nullptr}});
    expectStart({});
}

TEST_F(FollowedPluginStart, EditedFileDoesNotCountIfTheRecordIsAhead) {
    keep({{1, "a"}});
    changeRecord({{2, "b"}});
    const std::string edited = zonedFileOf({{9, "edited"}});
    tests::writeFile(host_.path(), edited);
    expectStart({{1, "a"}, {2, "b"}});
    EXPECT_EQ(readFile(host_.aside(1)), edited);
}

TEST_F(FollowedPluginStart, DamagedOrMissingFileIsWrittenFromARecordThatIsAhead) {
    keep({{1, "a"}});
    changeRecord({{2, "b"}});
    tests::writeFile(host_.path(), "");
    expectStart({{1, "a"}, {2, "b"}});
    end();
    changeRecord({{1, nullptr}});
    fs::remove(host_.path());
    expectStart({{2, "b"}});
}

TEST_F(FollowedPluginStart, FileThatMayNotBeWrittenIsNotReplaced) {
    keep({{1, "a"}});
    changeRecord({{1, nullptr}});
    tests::asOrdinaryUser(host_.files().path(""), [this] {
        fs::permissions(host_.path(), fs::perms(0400));
        EXPECT_EQ(start(), host_.path() + " cannot be written: Permission denied");
        EXPECT_EQ(host_.content(), zonedFileOf({{1, "a"}}));
        EXPECT_THAT(tests::servicesIn(*plugin_), IsEmpty());
    });
}

TEST_F(FollowedPluginStart, EditAfterAStartThatFailedCounts) {
    keep({{1, "a"}});
    make([] { throw std::runtime_error("broken"); });
    EXPECT_THROW(followed_->start(), std::runtime_error);
    end();
    tests::writeFile(host_.path(), zonedFileOf({{2, "edited"}}));
    expectStart({{2, "edited"}});
}

// While the host runs.

TEST_F(FollowedPluginStart, ReloadAdoptsAnEdit) {
    keep({{1, "a"}, {2, "b"}});
    start();
    tests::writeFile(host_.path(), zonedFileOf({{1, "a"}, {3, "edited"}}));
    EXPECT_EQ(followed_->start(), "");
    expectEverywhere({{1, "a"}, {3, "edited"}});
    EXPECT_EQ(readFile(host_.aside(1)), zonedFileOf({{1, "a"}, {2, "b"}}));
}

TEST_F(FollowedPluginStart, ReloadBringsNoWithdrawnServiceBack) {
    keep({{1, "a"}, {2, "b"}});
    start();
    host_.change({{2, nullptr}});
    EXPECT_EQ(followed_->start(), "");
    expectEverywhere({{1, "a"}});
}

}  // namespace
}  // namespace qv::host
