// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>

#include "qvhost/ProgramRun.h"
#include "support/ConfigurationDocuments.h"
#include "support/Files.h"
#include "support/OtherUser.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::StartsWith;

// The attributes that a change of a file or directory would alter.
struct FileState {
    ino_t inode = 0;
    mode_t mode = 0;
    uid_t owner = 0;
    off_t size = 0;
    time_t changedSeconds = 0;
    long changedNanoseconds = 0;
    std::string bytes;
};

bool operator==(const FileState& one, const FileState& other) {
    const auto fields = [](const FileState& state) {
        return std::tie(state.inode, state.mode, state.owner, state.size, state.changedSeconds,
                        state.changedNanoseconds, state.bytes);
    };
    return fields(one) == fields(other);
}

class QvhostOffline : public testing::Test {
  protected:
    std::string file() const { return program_.configuration(); }
    std::string backup() const {
        return program_.files().path("config/backup/namingService.conf.plist");
    }

    void writeBackup(const std::string& content) const {
        fs::create_directories(fs::path(backup()).parent_path());
        tests::writeFile(backup(), content);
    }

    // Returns the state of everything in the run's directory, itself included.
    std::map<std::string, FileState> states() const {
        std::map<std::string, FileState> states;
        const auto add = [&](const fs::path& path) {
            struct stat status = {};
            EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
            states[path] = {status.st_ino,
                            status.st_mode,
                            status.st_uid,
                            status.st_size,
                            status.st_ctim.tv_sec,
                            status.st_ctim.tv_nsec,
                            S_ISREG(status.st_mode) ? readFile(path) : ""};
        };
        const fs::path config = program_.files().path("config");
        add(config);
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(config)) {
            add(entry.path());
        }
        return states;
    }

    // Lists, and expects that no file changed and that the plug-in was not loaded: the plug-in
    // opens its log at once.
    ProgramOutcome list(const std::vector<std::string>& options = {}) {
        const std::map<std::string, FileState> before = states();
        std::vector<std::string> arguments = {"list", "--offline"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        ProgramOutcome outcome = program_.run(arguments);
        EXPECT_TRUE(states() == before);
        EXPECT_FALSE(fs::exists(program_.files().path("log")));
        return outcome;
    }

    void expectFailure(const std::string& problem) {
        const ProgramOutcome outcome = list();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, "qvhost: cannot list the services: " + problem + "\n");
    }

    ProgramRun program_;
};

constexpr char kNoDictionary[] = " is no property list with a dictionary as its root";

TEST_F(QvhostOffline, ReadsTheFileAndSaysSo) {
    tests::writeFile(file(), tests::documentOf({{2, "b"}, {-1, "a"}}));
    writeBackup(tests::documentOf({{3, "c"}}));
    const ProgramOutcome outcome = list();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "ID  ADDRESS\n-1  a\n 2  b\n");
    EXPECT_EQ(outcome.err, "qvhost: read " + file() + "\n");
}

TEST_F(QvhostOffline, EmptyDirectoryIsSaidInWords) {
    const ProgramOutcome outcome = list();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "no services\n");
}

TEST_F(QvhostOffline, PrintsTheSameFormatsAsTheHost) {
    EXPECT_EQ(list({"--json"}).out, "[]\n");
    tests::writeFile(file(), tests::documentOf({{5, "a,b"}, {6, "c"}}));
    EXPECT_EQ(list({"--csv"}).out, "id,address\n5,\"a,b\"\n6,c\n");
    EXPECT_EQ(json::parse(list({"--json"}).out),
              json::array({{{"id", 5}, {"address", "a,b"}}, {{"id", 6}, {"address", "c"}}}));
}

TEST_F(QvhostOffline, LaterServiceWithTheSameIdentifierWins) {
    tests::writeFile(file(), tests::documentOf({{1, "old"}, {1, "new"}}));
    EXPECT_EQ(list().out, "ID  ADDRESS\n 1  new\n");
}

TEST_F(QvhostOffline, ValuesOfOtherTypesAreReadAsThePluginReadsThem) {
    const std::pair<const char*, const char*> cases[] = {
        {"<string>x</string>", "no services\n"},
        {"<dict/>", "no services\n"},
        {"<dict><key>services</key><dict/></dict>", "no services\n"},
        {"<dict><key>services</key><array><dict/><string>x</string></array></dict>",
         "no services\n"},
        {"<dict><key>services</key><array><dict><key>id</key><string>7</string>"
         "<key>address</key><string>a</string></dict></array></dict>",
         "ID  ADDRESS\n 0  a\n"},
    };
    for (const auto& [value, listing] : cases) {
        tests::writeFile(file(), tests::document("<key>Address</key>" + std::string(value)));
        EXPECT_EQ(list().out, listing) << value;
    }
}

TEST_F(QvhostOffline, ReadsTheBackupOfADamagedFile) {
    writeBackup(tests::documentOf({{1, "a"}}));
    for (const char* content : {"damaged", "", "<plist><array/></plist>"}) {
        tests::writeFile(file(), content);
        const ProgramOutcome outcome = list();
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.out, "ID  ADDRESS\n 1  a\n");
        EXPECT_EQ(outcome.err,
                  "qvhost: " + file() + kNoDictionary + "; read its backup " + backup() + "\n");
    }
}

TEST_F(QvhostOffline, ReadsTheBackupOfAMissingFile) {
    writeBackup(tests::documentOf({{1, "a"}}));
    fs::remove(file());
    const ProgramOutcome outcome = list();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "ID  ADDRESS\n 1  a\n");
    EXPECT_EQ(outcome.err,
              "qvhost: " + file() + " does not exist; read its backup " + backup() + "\n");
}

TEST_F(QvhostOffline, FailsIfFileAndBackupAreDamaged) {
    tests::writeFile(file(), "damaged");
    writeBackup("damaged");
    expectFailure(file() + kNoDictionary + ", and its backup " + backup() + kNoDictionary);
}

TEST_F(QvhostOffline, FailsIfFileAndBackupAreMissing) {
    fs::remove(file());
    expectFailure(file() + " does not exist, and its backup " + backup() + " does not exist");
    fs::remove(program_.files().path("config"));
    fs::create_symlink("nowhere", program_.files().path("config"));
    EXPECT_EQ(program_.run({"list", "--offline"}).status, 1);
}

// The plug-in would not turn to the backup here.
TEST_F(QvhostOffline, FailsIfNoRegularFileStandsInTheFilesPlace) {
    writeBackup(tests::documentOf({{1, "a"}}));
    fs::remove(file());
    ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
    expectFailure(file() + kNoDictionary);
    fs::remove(file());
    fs::create_directory(file());
    expectFailure(file() + kNoDictionary);
}

TEST_F(QvhostOffline, FailsForAUserWhoMayNotReadTheFile) {
    writeBackup(tests::documentOf({{1, "a"}}));
    tests::asOrdinaryUser(program_.files().path(""), [&] {
        fs::permissions(file(), fs::perms::none);
        const ProgramOutcome outcome = program_.run({"list", "--offline"});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, "qvhost: cannot list the services: " + file() +
                                   " cannot be read: Permission denied\n");
    });
}

TEST_F(QvhostOffline, FailsForAUserWhoMayNotReadTheBackupOfADamagedFile) {
    writeBackup(tests::documentOf({{1, "a"}}));
    tests::writeFile(file(), "damaged");
    tests::asOrdinaryUser(program_.files().path(""), [&] {
        fs::permissions(fs::path(backup()).parent_path(), fs::perms(0600));
        const ProgramOutcome outcome = program_.run({"list", "--offline"});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err,
                    AllOf(StartsWith("qvhost: cannot list the services: " + file()),
                          EndsWith(backup() + " cannot be read: Permission denied\n")));
        fs::permissions(fs::path(backup()).parent_path(), fs::perms(0700));
    });
}

TEST_F(QvhostOffline, OptionNamesTheDirectory) {
    fs::create_directory(program_.files().path("config/other"));
    tests::writeFile(program_.files().path("config/other/namingService.conf.plist"),
                     tests::documentOf({{1, "a"}}));
    EXPECT_EQ(list({"--config-dir", program_.files().path("config/other")}).out,
              "ID  ADDRESS\n 1  a\n");
}

TEST_F(QvhostOffline, NeedsNoPlugin) {
    const fs::path bin = program_.files().path("bin");
    fs::create_directory(bin);
    fs::copy_file(QVHOST_PROGRAM, bin / "qvhost");
    program_.setProgram(bin / "qvhost");
    // These are the libraries that the program itself needs.
    program_.setVariable("LD_LIBRARY_PATH", QVHOST_LIBRARY_DIR);
    program_.setVariable("DYLD_LIBRARY_PATH", QVHOST_LIBRARY_DIR);
    EXPECT_EQ(list().out, "no services\n");
}

}  // namespace
}  // namespace qv::host
