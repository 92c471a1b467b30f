// SPDX-License-Identifier: Apache-2.0

#include "server/StoredFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "QvConfig.h"
#include "qvhost/TestFiles.h"
#include "support/ConfigurationDocuments.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/OtherUser.h"

namespace qv::client {

static bool operator==(const Service& one, const Service& other) {
    return one.id == other.id && one.address == other.address;
}

}  // namespace qv::client

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using State = FileView::State;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kName[] = "namingService.conf.plist";
constexpr char kEmpty[] = "<plist version='1.0'><dict/></plist>";
constexpr char kNoDictionary[] = "is no property list with a dictionary as its root";

class StoredFileTest : public testing::Test {
  protected:
    StoredFileTest() { fs::create_directory(files_.path("config")); }

    std::string path() const { return files_.path("config/") + kName; }
    std::string backup() const { return files_.path("config/backup/") + kName; }

    void write(const std::string& content) const {
        files_.write(std::string("config/") + kName, content);
    }
    void writeBackup(const std::string& content) const {
        fs::create_directory(files_.path("config/backup"));
        files_.write(std::string("config/backup/") + kName, content);
    }

    // Returns the view of a file with this value under "Address".
    FileView viewOf(const std::string& value) const {
        write(tests::document("<key>Address</key>" + value));
        return file().look();
    }

    StoredFile file() const { return StoredFile(path()); }

    // Returns the names in the directory of the file.
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(files_.path("config"))) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    // Returns the error of make().
    std::string refusal() const {
        try {
            file().make();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        ADD_FAILURE() << "made";
        return "";
    }

    TestFiles files_;
};

Snapshot snapshotOf(const std::vector<Service>& services) {
    return {1, services};
}

// Returns the error of an action, or no error.
template <class Action>
std::error_code errorOf(Action action) {
    try {
        action();
    } catch (const std::system_error& error) {
        return error.code();
    }
    return {};
}

TEST_F(StoredFileTest, LookFindsTheServicesAndTheOtherKeys) {
    const std::string document =
        tests::document(tests::entryOf({{-1, "a"}, {2, "b & c"}}) +
                        "\t<key>DebugLevel</key>\n\t<integer>7</integer>\n");
    write(document);
    const FileView view = file().look();
    EXPECT_EQ(view.state, State::Whole);
    EXPECT_EQ(view.problem, "");
    EXPECT_EQ(view.fingerprint, fingerprintOf(document));
    EXPECT_EQ(file().fingerprint(), fingerprintOf(document));
    EXPECT_TRUE(view.isDirectory);
    EXPECT_THAT(view.services, ElementsAre(Service{-1, "a"}, Service{2, "b & c"}));
    EXPECT_EQ(view.otherKeys, tests::document("\t<key>DebugLevel</key>\n\t<integer>7</integer>\n"));
}

TEST_F(StoredFileTest, ServicesAreInOrderAndTheLaterDuplicateWins) {
    write(tests::documentOf({{2, "b"}, {7, "x"}, {1, "a"}, {7, "y"}, {-3, "c"}, {7, "z"}}));
    EXPECT_THAT(file().look().services,
                ElementsAre(Service{-3, "c"}, Service{1, "a"}, Service{2, "b"}, Service{7, "z"}));
    EXPECT_TRUE(file().look().isDirectory);
}

TEST_F(StoredFileTest, ListWithoutServicesIsADirectory) {
    const FileView view = viewOf("<dict><key>services</key><array/></dict>");
    EXPECT_TRUE(view.isDirectory);
    EXPECT_THAT(view.services, IsEmpty());
}

TEST_F(StoredFileTest, FileWithoutAListIsWholeAndNoDirectory) {
    write(kEmpty);
    EXPECT_EQ(file().look().state, State::Whole);
    EXPECT_FALSE(file().look().isDirectory);
    for (const char* value :
         {"<string>x</string>", "<array/>", "<dict/>", "<dict><key>services</key><dict/></dict>",
          "<dict><key>services</key><string>x</string></dict>"}) {
        const FileView view = viewOf(value);
        EXPECT_EQ(view.state, State::Whole) << value;
        EXPECT_FALSE(view.isDirectory) << value;
        EXPECT_THAT(view.services, IsEmpty()) << value;
    }
}

TEST_F(StoredFileTest, ElementThatIsNoServiceEmptiesTheListAsInThePlugin) {
    const FileView view = viewOf(
        "<dict><key>services</key><array><dict><key>id</key><integer>1</integer>"
        "<key>address</key><string>a</string></dict><string>x</string></array></dict>");
    EXPECT_FALSE(view.isDirectory);
    EXPECT_THAT(view.services, IsEmpty());
}

TEST_F(StoredFileTest, ElementWithoutAFieldIsReadAsInThePluginAndMakesNoDirectory) {
    const auto viewOfElement = [this](const std::string& fields) {
        return viewOf("<dict><key>services</key><array><dict>" + fields + "</dict></array></dict>");
    };
    constexpr char kId[] = "<key>id</key><integer>1</integer>";
    constexpr char kAddress[] = "<key>address</key><string>a</string>";
    EXPECT_TRUE(viewOfElement(std::string(kId) + kAddress).isDirectory);
    for (const char* id :
         {"", "<key>id</key><string>7</string>", "<key>id</key><integer>2147483648</integer>",
          "<key>id</key><real>1.5</real>", "<key>Id</key><integer>1</integer>"}) {
        const FileView view = viewOfElement(std::string(id) + kAddress);
        EXPECT_FALSE(view.isDirectory) << id;
        EXPECT_THAT(view.services, ElementsAre(Service{0, "a"})) << id;
    }
    for (const char* address : {"", "<key>address</key><integer>7</integer>"}) {
        const FileView view = viewOfElement(std::string(kId) + address);
        EXPECT_FALSE(view.isDirectory) << address;
        EXPECT_THAT(view.services, ElementsAre(Service{1, ""})) << address;
    }
}

TEST_F(StoredFileTest, MissingFileHasAProblemAndNothingElse) {
    const FileView view = file().look();
    EXPECT_EQ(view.state, State::Missing);
    EXPECT_EQ(file().problem(view), path() + " does not exist");
    EXPECT_EQ(view.fingerprint, 0U);
    EXPECT_EQ(file().fingerprint(), 0U);
    fs::create_symlink(files_.path("nowhere"), path());
    EXPECT_EQ(file().look().state, State::Missing);
}

TEST_F(StoredFileTest, DamagedFileHasAFingerprint) {
    for (const char* content :
         {"", "text", "<plist><array/></plist>", "<plist><dict>", "bplist00"}) {
        write(content);
        const FileView view = file().look();
        EXPECT_EQ(view.state, State::Damaged) << content;
        EXPECT_EQ(view.problem, kNoDictionary) << content;
        EXPECT_EQ(view.fingerprint, fingerprintOf(content));
        EXPECT_FALSE(view.isDirectory);
    }
}

TEST_F(StoredFileTest, PipeOrDirectoryIsUnusableAndNotWaitedFor) {
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    EXPECT_EQ(file().look().state, State::Unusable);
    EXPECT_EQ(file().look().problem, kNoDictionary);
    EXPECT_EQ(file().fingerprint(), 0U);
    EXPECT_EQ(errorOf([&] { file().write(Snapshot(), ""); }), std::errc::invalid_argument);
    EXPECT_TRUE(fs::is_fifo(path()));
    fs::remove(path());
    fs::create_directory(path());
    EXPECT_EQ(file().look().state, State::Unusable);
    EXPECT_EQ(errorOf([&] { file().write(Snapshot(), ""); }), std::errc::is_a_directory);
    EXPECT_THAT(names(), ElementsAre(kName));
}

TEST_F(StoredFileTest, FileThatMayNotBeReadIsUnusable) {
    write(kEmpty);
    tests::asOrdinaryUser(files_.path(""), [&] {
        fs::permissions(path(), fs::perms::none);
        EXPECT_EQ(file().look().state, State::Unusable);
        EXPECT_EQ(file().look().problem, "cannot be read: Permission denied");
    });
}

TEST_F(StoredFileTest, WrittenFileIsTheOneThatThePluginWrites) {
    file().write(snapshotOf({{-1, "a<&>"}, {2, "\xc3\xa9"}}), "");
    EXPECT_EQ(readFile(path()), tests::documentOf({{-1, "a<&>"}, {2, "\xc3\xa9"}}));
    EXPECT_THAT(file().look().services, ElementsAre(Service{-1, "a<&>"}, Service{2, "\xc3\xa9"}));
    EXPECT_THAT(names(), ElementsAre(kName));

    write(kEmpty);
    qor::kevra::ServiceInfoArray services;
    services.add_services()->set_id(-1);
    services.mutable_services(0)->set_address("a");
    qor::kevra::QvConfig<qor::kevra::NullMutex> saved(path().c_str());
    ASSERT_TRUE(saved.set(services, "Address") && saved.save());
    const std::string expected = readFile(path());
    file().write(snapshotOf({{-1, "a"}}), "");
    EXPECT_EQ(readFile(path()), expected);
}

TEST_F(StoredFileTest, EmptyDirectoryIsWrittenAsThePluginStoresIt) {
    write(kEmpty);
    qor::kevra::QvConfig<qor::kevra::NullMutex> saved(path().c_str());
    ASSERT_TRUE(saved.set(qor::kevra::ServiceInfoArray(), "Address") && saved.save());
    const std::string expected = readFile(path());
    fs::remove(path());
    file().write(Snapshot(), "");
    EXPECT_EQ(readFile(path()), expected);
    EXPECT_THAT(file().look().services, IsEmpty());
}

TEST_F(StoredFileTest, OtherKeysAreKept) {
    const std::string other = "\t<key>Zone</key>\n\t<array>\n\t\t<string>x</string>\n\t</array>\n";
    write(tests::document(tests::entryOf({{1, "a"}}) + other));
    const std::string otherKeys = file().look().otherKeys;
    file().write(snapshotOf({{2, "b"}}), otherKeys);
    EXPECT_EQ(readFile(path()), tests::document(tests::entryOf({{2, "b"}}) + other));
    EXPECT_EQ(file().look().otherKeys, otherKeys);
}

TEST_F(StoredFileTest, OtherKeysThatAreNoPropertyListCountAsNone) {
    for (const char* keys : {"", "text", "<plist><array/></plist>"}) {
        file().write(snapshotOf({{1, "a"}}), keys);
        EXPECT_EQ(readFile(path()), tests::documentOf({{1, "a"}})) << keys;
    }
}

TEST_F(StoredFileTest, AddressThatIsNotUtf8IsNamedAndNothingIsWritten) {
    write(kEmpty);
    try {
        file().write(snapshotOf({{1, "a"}, {77, "\xff"}}), "");
        ADD_FAILURE() << "written";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::illegal_byte_sequence);
        EXPECT_THAT(error.what(), HasSubstr("77"));
    }
    EXPECT_EQ(readFile(path()), kEmpty);
}

TEST_F(StoredFileTest, WritingKeepsTheMode) {
    const tests::UmaskGuard umask(0277);
    file().write(Snapshot(), "");
    EXPECT_EQ(tests::modeOf(path()), 0600U);
    fs::permissions(path(), fs::perms(0664));
    file().write(snapshotOf({{1, "a"}}), "");
    EXPECT_EQ(tests::modeOf(path()), 0664U);
    EXPECT_EQ(file().look().services.size(), 1U);
}

TEST_F(StoredFileTest, WritingKeepsTheOwner) {
    constexpr uid_t kNobody = 65534;
    write(kEmpty);
    const bool isChanged = chown(path().c_str(), kNobody, kNobody) == 0;
    const struct stat before = tests::statusOf(path());
    file().write(snapshotOf({{1, "a"}}), "");
    EXPECT_EQ(tests::statusOf(path()).st_uid, before.st_uid);
    EXPECT_EQ(tests::statusOf(path()).st_gid, before.st_gid);
    EXPECT_TRUE(!isChanged || before.st_uid == kNobody);
    EXPECT_NE(tests::statusOf(path()).st_ino, before.st_ino);
}

TEST_F(StoredFileTest, OwnerThatCannotBeKeptIsAnErrorThatLeavesTheFile) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    constexpr uid_t kNobody = 65534;
    write(kEmpty);
    for (const char* directory : {"", "config"}) {
        ASSERT_EQ(chown(files_.path(directory).c_str(), kNobody, kNobody), 0);
    }
    EXPECT_EXIT(
        {
            if (setuid(kNobody) != 0) {
                _exit(1);
            }
            const std::error_code error = errorOf([&] { file().write(Snapshot(), ""); });
            _exit(error == std::errc::operation_not_permitted ? 7 : 2);
        },
        testing::ExitedWithCode(7), "");
    EXPECT_EQ(readFile(path()), kEmpty);
    EXPECT_THAT(names(), ElementsAre(kName));
}

TEST_F(StoredFileTest, WritingFollowsLinksWhichStay) {
    fs::create_directory(files_.path("real"));
    fs::create_symlink("../real/second", path());
    fs::create_symlink(files_.path("real/file"), files_.path("real/second"));
    file().write(snapshotOf({{1, "a"}}), "");
    EXPECT_EQ(fs::read_symlink(path()), "../real/second");
    EXPECT_TRUE(fs::is_symlink(files_.path("real/second")));
    EXPECT_EQ(readFile(files_.path("real/file")), tests::documentOf({{1, "a"}}));
    file().write(snapshotOf({{2, "b"}}), "");
    EXPECT_EQ(readFile(files_.path("real/file")), tests::documentOf({{2, "b"}}));
    EXPECT_TRUE(fs::is_symlink(path()));
    fs::remove(path());
    fs::create_symlink(kName, path());
    EXPECT_EQ(errorOf([&] { file().write(Snapshot(), ""); }),
              std::errc::too_many_symbolic_link_levels);
}

TEST_F(StoredFileTest, FullDiskLeavesTheOldFileAndNothingElse) {
    write(kEmpty);
    EXPECT_EXIT(
        {
            static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
            rlimit limit = {};
            getrlimit(RLIMIT_FSIZE, &limit);
            limit.rlim_cur = 3;
            setrlimit(RLIMIT_FSIZE, &limit);
            const std::error_code error = errorOf([&] { file().write(Snapshot(), ""); });
            _exit(error == std::errc::file_too_large ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
    EXPECT_EQ(readFile(path()), kEmpty);
    EXPECT_THAT(names(), ElementsAre(kName));
}

TEST_F(StoredFileTest, WhatAKilledWriterLeftIsRemovedByTheNext) {
    files_.write(std::string("config/.") + kName + ".new", "half of a fi");
    file().write(snapshotOf({{1, "a"}}), "");
    EXPECT_EQ(readFile(path()), tests::documentOf({{1, "a"}}));
    EXPECT_THAT(names(), ElementsAre(kName));
}

TEST_F(StoredFileTest, CopiesAsideAreTheNewestFive) {
    for (int copy = 1; copy <= 7; ++copy) {
        write(std::to_string(copy));
        EXPECT_EQ(file().copyAside(), path() + ".aside-" + std::to_string(copy));
    }
    EXPECT_THAT(names(),
                ElementsAre(kName, std::string(kName) + ".aside-3", std::string(kName) + ".aside-4",
                            std::string(kName) + ".aside-5", std::string(kName) + ".aside-6",
                            std::string(kName) + ".aside-7"));
    EXPECT_EQ(readFile(path() + ".aside-3"), "3");
    EXPECT_EQ(tests::modeOf(path() + ".aside-7"), 0600U);
    EXPECT_EQ(readFile(path()), "7");
}

TEST_F(StoredFileTest, OtherFilesOfSimilarNamesAreNoCopies) {
    write("x");
    for (const char* ending :
         {".aside-", ".aside-x", ".aside-50x", ".aside-99999999999999999999"}) {
        files_.write(std::string("config/") + kName + ending, "");
    }
    for (int copy = 1; copy <= 6; ++copy) {
        file().copyAside();
    }
    EXPECT_EQ(names().size(), 10U);
    EXPECT_FALSE(fs::exists(path() + ".aside-1"));
    EXPECT_TRUE(fs::exists(path() + ".aside-6"));
}

TEST_F(StoredFileTest, MissingFileCannotBeCopiedAside) {
    EXPECT_EQ(errorOf([&] { file().copyAside(); }), std::errc::no_such_file_or_directory);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(StoredFileTest, ListOfNoFileIsPutAsideLikeACopy) {
    const std::string name = file().putAside(snapshotOf({{1, "a"}}), "");
    EXPECT_EQ(name, path() + ".aside-1");
    EXPECT_EQ(readFile(name), tests::documentOf({{1, "a"}}));
}

TEST_F(StoredFileTest, NewFileIsTheOneThatASaveWouldWrite) {
    file().make();
    EXPECT_EQ(file().look().state, State::Whole);
    EXPECT_EQ(tests::modeOf(path()), 0600U);
    const std::string saved = files_.write("saved.plist", kEmpty);
    EXPECT_TRUE(qor::kevra::QvConfig<qor::kevra::NullMutex>(saved.c_str()).save());
    EXPECT_EQ(readFile(path()), readFile(saved));
}

TEST_F(StoredFileTest, MissingDirectoriesAreMade) {
    const StoredFile deep(files_.path("a/b/") + kName);
    deep.make();
    EXPECT_EQ(deep.look().state, State::Whole);
    EXPECT_EQ(tests::modeOf(files_.path("a/b")) & 07027U, 0U);
}

TEST_F(StoredFileTest, DirectoryOfTheBackupIsMadeForItsOwner) {
    file().make();
    EXPECT_EQ(tests::modeOf(files_.path("config/backup")), 0700U);
    EXPECT_THAT(names(), ElementsAre("backup", kName));
}

TEST_F(StoredFileTest, MakeReplacesNothing) {
    for (const char* content : {kEmpty, "damaged", ""}) {
        write(content);
        EXPECT_EQ(refusal(), path() + " exists already and is left as it is");
        EXPECT_EQ(readFile(path()), content);
    }
    fs::remove(path());
    fs::create_symlink(files_.path("nowhere"), path());
    EXPECT_EQ(refusal(), path() + " exists already and is left as it is");
    EXPECT_FALSE(fs::exists(files_.path("nowhere")));
    fs::remove(path());
    fs::create_directory(path());
    EXPECT_EQ(refusal(), path() + " exists already and is left as it is");
}

TEST_F(StoredFileTest, BackupIsLeftForThePluginToRestore) {
    writeBackup(kEmpty);
    EXPECT_EQ(refusal(),
              "nothing made: the plug-in will restore " + path() + " from its backup " + backup());
    EXPECT_FALSE(fs::exists(path()));
}

TEST_F(StoredFileTest, BackupThatCannotBeLoadedIsNamed) {
    writeBackup("damaged");
    EXPECT_THAT(refusal(), AllOf(StartsWith("nothing made: there is a backup " + backup()),
                                 HasSubstr("is no property list")));
    EXPECT_FALSE(fs::exists(path()));
}

TEST_F(StoredFileTest, NoEmptyFileIsMadeBesideARecord) {
    const std::string record = recordPathOf(path());
    EXPECT_EQ(record, path() + ".record");
    tests::writeFile(record, "");
    EXPECT_EQ(refusal(), "nothing made: the resident host will write " + path() +
                             " from its record " + record);
    EXPECT_THAT(names(), ElementsAre(std::string(kName) + ".record"));
}

TEST_F(StoredFileTest, FileInThePlaceOfTheBackupDirectoryIsNoBackup) {
    files_.write("config/backup", "");
    file().make();
    EXPECT_EQ(file().look().state, State::Whole);
}

TEST_F(StoredFileTest, PathBeyondThePluginsBoundIsAProblem) {
    const StoredFile none("");
    EXPECT_EQ(none.look().state, State::Unusable);
    EXPECT_EQ(none.problem(none.look()), "the configuration file's path is too long");
    EXPECT_EQ(none.fingerprint(), 0U);
    EXPECT_THROW(none.make(), std::runtime_error);
    EXPECT_THROW(none.write(Snapshot(), ""), std::system_error);
}

TEST_F(StoredFileTest, ReadTakesTheBackupOfAMissingOrDamagedFile) {
    write(tests::documentOf({{1, "a"}}));
    writeBackup(tests::documentOf({{2, "b"}}));
    EXPECT_THAT(file().read().services, ElementsAre(Service{1, "a"}));
    EXPECT_EQ(file().read().source, "read " + path());
    write("damaged");
    EXPECT_THAT(file().read().services, ElementsAre(Service{2, "b"}));
    fs::remove(path());
    EXPECT_THAT(file().read().services, ElementsAre(Service{2, "b"}));
    EXPECT_EQ(file().read().source, path() + " does not exist; read its backup " + backup());
    fs::remove(backup());
    EXPECT_THROW(file().read(), std::runtime_error);
}

}  // namespace
}  // namespace qv::host
