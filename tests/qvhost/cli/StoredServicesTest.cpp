#include "cli/StoredServices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "QvConfig.h"
#include "qvhost/TestFiles.h"
#include "support/FileModes.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kName[] = "namingService.conf.plist";
constexpr char kEmpty[] = "<plist version='1.0'><dict/></plist>";

class StoredServicesTest : public testing::Test {
  protected:
    StoredServicesTest() { fs::create_directory(files_.path("config")); }

    std::string path() const { return files_.path("config/") + kName; }
    std::string backup() const { return files_.path("config/backup/") + kName; }

    void write(const std::string& content) const {
        files_.write(std::string("config/") + kName, content);
    }
    void writeBackup(const std::string& content) const {
        fs::create_directory(files_.path("config/backup"));
        files_.write(std::string("config/backup/") + kName, content);
    }

    StoredServices file() const { return StoredServices(path()); }

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

TEST_F(StoredServicesTest, NewFileIsTheOneThatASaveWouldWrite) {
    file().make();
    EXPECT_EQ(file().problem(), "");
    EXPECT_EQ(tests::modeOf(path()), 0600U);
    const std::string saved = files_.write("saved.plist", kEmpty);
    EXPECT_TRUE(qor::kevra::QvConfig<qor::kevra::NullMutex>(saved.c_str()).save());
    EXPECT_EQ(readFile(path()), readFile(saved));
}

TEST_F(StoredServicesTest, MissingDirectoriesAreMade) {
    const StoredServices deep(files_.path("a/b/") + kName);
    deep.make();
    EXPECT_EQ(deep.problem(), "");
    EXPECT_EQ(tests::modeOf(files_.path("a/b")) & 07027U, 0U);
}

TEST_F(StoredServicesTest, ProblemOfAMissingFileNamesInit) {
    EXPECT_EQ(file().problem(), path() + " does not exist (qvhost init makes it)");
}

TEST_F(StoredServicesTest, ProblemOfALinkToNothingDoesNotNameInit) {
    fs::create_symlink(files_.path("nowhere"), path());
    EXPECT_EQ(file().problem(), path() + " does not exist");
}

TEST_F(StoredServicesTest, DamagedFileIsAProblem) {
    for (const char* content :
         {"", "text", "<plist><array/></plist>", "<plist><dict>", "bplist00"}) {
        write(content);
        EXPECT_EQ(file().problem(), path() + " is no property list with a dictionary as its root")
            << content;
    }
    write(kEmpty);
    EXPECT_EQ(file().problem(), "");
}

TEST_F(StoredServicesTest, PipeOrDirectoryIsAProblemAndNotWaitedFor) {
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    EXPECT_THAT(file().problem(), HasSubstr(" is no property list"));
    fs::remove(path());
    fs::create_directory(path());
    EXPECT_THAT(file().problem(), HasSubstr(" is no property list"));
}

TEST_F(StoredServicesTest, FileWithoutPermissionIsAProblem) {
    write(kEmpty);
    fs::permissions(files_.path(""), fs::perms(0755));
    fs::permissions(files_.path("config"), fs::perms(0755));
    const auto problemOfAnother = [this] {
        constexpr uid_t kNobody = 65534;
        if (geteuid() == 0 && setuid(kNobody) != 0) {
            _exit(EXIT_SUCCESS);
        }
        static_cast<void>(std::fprintf(stderr, "%s\n", file().problem().c_str()));
        _exit(EXIT_FAILURE);
    };
    fs::permissions(path(), fs::perms(0444));
    EXPECT_EXIT(problemOfAnother(), testing::ExitedWithCode(EXIT_FAILURE),
                "plist cannot be written: Permission denied");
    fs::permissions(path(), fs::perms::none);
    EXPECT_EXIT(problemOfAnother(), testing::ExitedWithCode(EXIT_FAILURE),
                "plist cannot be read: Permission denied");
}

TEST_F(StoredServicesTest, MakeReplacesNothing) {
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

TEST_F(StoredServicesTest, BackupIsLeftForThePluginToRestore) {
    writeBackup(kEmpty);
    EXPECT_EQ(refusal(),
              "nothing made: the plug-in will restore " + path() + " from its backup " + backup());
    EXPECT_FALSE(fs::exists(path()));
}

TEST_F(StoredServicesTest, BackupThatCannotBeLoadedIsNamed) {
    writeBackup("damaged");
    EXPECT_THAT(refusal(), AllOf(StartsWith("nothing made: there is a backup " + backup()),
                                 HasSubstr("is no property list")));
    EXPECT_FALSE(fs::exists(path()));
}

TEST_F(StoredServicesTest, FileInThePlaceOfTheBackupDirectoryIsNoBackup) {
    files_.write("config/backup", "");
    file().make();
    EXPECT_EQ(file().problem(), "");
}

TEST_F(StoredServicesTest, PathBeyondThePluginsBoundIsAProblem) {
    const StoredServices none("");
    EXPECT_EQ(none.problem(), "the configuration file's path is too long");
    EXPECT_THROW(none.make(), std::runtime_error);
}

}  // namespace
}  // namespace qv::host
