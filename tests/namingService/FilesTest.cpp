// Puts other things in place of the configuration file, of its backup and of their directories, and
// checks what a start and a save do then, as root and as another user.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <new>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "support/ConfigurationDocuments.h"
#include "support/EnvironmentVariable.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/LoadedPlugin.h"
#include "support/OtherUser.h"
#include "support/SpecialFiles.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

namespace fs = std::filesystem;

const std::string kMain = documentOf({{1, "main"}});
const std::string kBackup = documentOf({{1, "backup"}});
constexpr std::uintmax_t kFourGibibytes = std::uintmax_t{1} << 32;

// Makes a good file and a good backup in directories that only their owner may use.
class Layout {
  public:
    Layout() {
        fs::create_directory(configDirectory());
        fs::create_directory(backupDirectory());
        fs::permissions(configDirectory(), fs::perms(0700));
        fs::permissions(backupDirectory(), fs::perms(0700));
        fs::create_directory(elsewhere());
        writeFile(mainFile(), kMain);
        writeFile(backupFile(), kBackup);
    }

    const std::string& path() const { return directory_.path(); }
    std::string configDirectory() const { return directory_.path("config"); }
    std::string mainFile() const { return configDirectory() + '/' + kConfigurationFile; }
    std::string backupDirectory() const { return configDirectory() + "/backup"; }
    std::string backupFile() const { return backupDirectory() + '/' + kConfigurationFile; }
    // A directory for the targets of links.
    std::string elsewhere() const { return directory_.path("elsewhere"); }
    std::string elsewhere(const std::string& name) const { return elsewhere() + '/' + name; }

  private:
    TemporaryDirectory directory_;
};

std::string nameOfContent(const std::string& path) {
    std::error_code ignored;
    if (!fs::is_regular_file(path, ignored)) {
        return "none";
    }
    if (fs::file_size(path) >= kFourGibibytes) {
        return "huge";
    }
    const std::string content = contentOf(path).value_or("unreadable");
    return content.empty()                                      ? "empty"
           : content == kMain                                   ? "main"
           : content == kBackup                                 ? "backup"
           : content == documentOf({{1, "main"}, {2, "new"}})   ? "main+new"
           : content == documentOf({{1, "backup"}, {2, "new"}}) ? "backup+new"
                                                                : "other";
}

std::string listed(const Services& services) {
    std::string text;
    for (const auto& [id, address] : services) {
        text += text.empty() ? address : '+' + address;
    }
    return text.empty() ? "nothing" : text;
}

// Starts the plug-in, registers a service and starts the plug-in again. Returns the services of
// both starts.
std::string startSaveStart(const LoadedPlugin& plugin) {
    EXPECT_EQ(plugin.initialize(), QV_OK);
    const std::string first = listed(plugin.getServices());
    EXPECT_EQ(plugin.registerServices({{2, "new"}}), QV_OK);
    plugin.finalize();
    EXPECT_EQ(plugin.initialize(), QV_OK);
    const std::string second = listed(plugin.getServices());
    plugin.finalize();
    return first + ", then " + second;
}

struct Case {
    const char* name;
    void (*put)(const Layout&);
    // The outcome for root and for another user: the services of both starts, and what the file and
    // the backup hold at the end.
    std::string root;
    std::string other;
};

std::ostream& operator<<(std::ostream& out, const Case& oneCase) {
    return out << oneCase.name;
}

const std::string kMainSaved = "main, then main+new; file main+new, backup main";
const std::string kBackupSaved = "backup, then backup+new; file backup+new, backup backup";
const std::string kSavedWithoutBackup = "main, then main+new; file main+new, backup none";
const std::string kNothing = "nothing, then nothing; file none, backup none";
const std::string kNothingButEmptyMain = "nothing, then nothing; file empty, backup none";
const std::string kNothingButBackup = "nothing, then nothing; file none, backup backup";

// Puts something at a path. The good file or directory is at elsewhere("good") then.
struct Thing {
    const char* name;
    void (*put)(const Layout& layout, const std::string& path);
};

void nothing(const Layout& /*layout*/, const std::string& /*path*/) {}

void putLink(const std::string& target, const std::string& path) {
    fs::create_symlink(target, path);
}

template <void (*Put)(const Layout&, const std::string&)>
void inPlaceOfMain(const Layout& layout) {
    fs::rename(layout.mainFile(), layout.elsewhere("good"));
    Put(layout, layout.mainFile());
}

// Keeps the file, so that only the save uses the backup.
template <void (*Put)(const Layout&, const std::string&)>
void inPlaceOfBackup(const Layout& layout) {
    fs::rename(layout.backupFile(), layout.elsewhere("good"));
    Put(layout, layout.backupFile());
}

// Removes the file, so that the start uses the backup.
template <void (*Put)(const Layout&, const std::string&)>
void inPlaceOfOnlyBackup(const Layout& layout) {
    fs::remove(layout.mainFile());
    inPlaceOfBackup<Put>(layout);
}

template <void (*Put)(const Layout&, const std::string&)>
void inPlaceOfBackupDirectory(const Layout& layout) {
    fs::rename(layout.backupDirectory(), layout.elsewhere("good"));
    Put(layout, layout.backupDirectory());
}

template <void (*Put)(const Layout&, const std::string&)>
void inPlaceOfConfigDirectory(const Layout& layout) {
    fs::rename(layout.configDirectory(), layout.elsewhere("good"));
    Put(layout, layout.configDirectory());
}

void emptyFile(const Layout& /*layout*/, const std::string& path) {
    writeFile(path, "");
}

void damagedFile(const Layout& /*layout*/, const std::string& path) {
    writeFile(path, "<plist><dict>");
}

void linkToGood(const Layout& layout, const std::string& path) {
    putLink(layout.elsewhere("good"), path);
}

void secondName(const Layout& layout, const std::string& path) {
    fs::create_hard_link(layout.elsewhere("good"), path);
}

void linkToNothing(const Layout& layout, const std::string& path) {
    putLink(layout.elsewhere("nothing"), path);
}

void linkIntoNoDirectory(const Layout& layout, const std::string& path) {
    putLink(layout.elsewhere("no/directory"), path);
}

void linkToItself(const Layout& /*layout*/, const std::string& path) {
    putLink(path, path);
}

void linkToDirectory(const Layout& layout, const std::string& path) {
    putLink(layout.elsewhere(), path);
}

void linkToMain(const Layout& layout, const std::string& path) {
    putLink(layout.mainFile(), path);
}

void secondNameOfMain(const Layout& layout, const std::string& path) {
    fs::create_hard_link(layout.mainFile(), path);
}

void directory(const Layout& /*layout*/, const std::string& path) {
    fs::create_directory(path);
}

void pipe(const Layout& /*layout*/, const std::string& path) {
    makePipe(path);
}

void linkToPipe(const Layout& layout, const std::string& path) {
    makePipe(layout.elsewhere("pipe"));
    putLink(layout.elsewhere("pipe"), path);
}

void socket(const Layout& /*layout*/, const std::string& path) {
    makeSocket(path);
}

void nullDevice(const Layout& /*layout*/, const std::string& path) {
    putLink("/dev/null", path);
}

void zeroDevice(const Layout& /*layout*/, const std::string& path) {
    putLink("/dev/zero", path);
}

void fullDevice(const Layout& /*layout*/, const std::string& path) {
    putLink("/dev/full", path);
}

// Makes a sparse file.
void eightGibibytes(const Layout& /*layout*/, const std::string& path) {
    writeFile(path, "");
    fs::resize_file(path, 2 * kFourGibibytes);
}

// Appends 4 GiB to the good document.
void fourGibibytesMore(const Layout& layout, const std::string& path) {
    fs::rename(layout.elsewhere("good"), path);
    fs::resize_file(path, fs::file_size(path) + kFourGibibytes);
}

void threeGibibytes(const Layout& layout, const std::string& path) {
    fs::rename(layout.elsewhere("good"), path);
    fs::resize_file(path, kFourGibibytes / 4 * 3);
}

template <int Mode>
void withMode(const Layout& layout, const std::string& path) {
    fs::rename(layout.elsewhere("good"), path);
    fs::permissions(path, fs::perms(Mode));
}

class Files : public testing::TestWithParam<Case> {
  protected:
    void expectOutcome(const std::string& expected) const {
        const EnvironmentVariable variable("QV_CONFIG_DIR", layout_.configDirectory());
        std::string outcome = startSaveStart(plugin_);
        // Lets the owner read the files again.
        std::error_code ignored;
        for (const std::string& path : {layout_.configDirectory(), layout_.backupDirectory()}) {
            if (fs::is_directory(path, ignored)) {
                fs::permissions(path, fs::perms(0700), ignored);
            }
        }
        for (const std::string& path : {layout_.mainFile(), layout_.backupFile()}) {
            if (fs::is_regular_file(path, ignored)) {
                fs::permissions(path, fs::perms(0600), ignored);
            }
        }
        outcome += "; file " + nameOfContent(layout_.mainFile()) + ", backup " +
                   nameOfContent(layout_.backupFile());
        EXPECT_EQ(outcome, expected);
    }

    // The first member, because loading sets the directories in the environment.
    const LoadedPlugin plugin_;
    const Layout layout_;
};

TEST_P(Files, OfRoot) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can run this test";
    }
    GetParam().put(layout_);
    expectOutcome(GetParam().root);
}

TEST_P(Files, OfAnotherUser) {
    GetParam().put(layout_);
    asOrdinaryUser(layout_.path(), [this] { expectOutcome(GetParam().other); });
}

std::string nameOf(const testing::TestParamInfo<Case>& info) {
    return info.param.name;
}

Case same(const char* name, void (*put)(const Layout&), const std::string& outcome) {
    return {name, put, outcome, outcome};
}

INSTANTIATE_TEST_SUITE_P(
    Main, Files,
    testing::Values(same("File", inPlaceOfMain<secondName>, kMainSaved),
                    same("Missing", inPlaceOfMain<nothing>, kBackupSaved),
                    same("Empty", inPlaceOfMain<emptyFile>, kBackupSaved),
                    same("Damaged", inPlaceOfMain<damagedFile>, kBackupSaved),
                    same("LinkToAFile", inPlaceOfMain<linkToGood>, kMainSaved),
                    same("LinkToNothing", inPlaceOfMain<linkToNothing>, kBackupSaved),
                    same("LinkIntoNoDirectory", inPlaceOfMain<linkIntoNoDirectory>,
                         kNothingButBackup),
                    same("LinkToItself", inPlaceOfMain<linkToItself>, kNothingButBackup),
                    same("LinkToADirectory", inPlaceOfMain<linkToDirectory>, kNothingButBackup),
                    same("Directory", inPlaceOfMain<directory>, kNothingButBackup),
                    same("Pipe", inPlaceOfMain<pipe>, kNothingButBackup),
                    same("LinkToAPipe", inPlaceOfMain<linkToPipe>, kNothingButBackup),
                    same("Socket", inPlaceOfMain<socket>, kNothingButBackup),
                    same("NullDevice", inPlaceOfMain<nullDevice>, kNothingButBackup),
                    same("ZeroDevice", inPlaceOfMain<zeroDevice>, kNothingButBackup),
                    same("FullDevice", inPlaceOfMain<fullDevice>, kNothingButBackup),
                    same("EightGibibytes", inPlaceOfMain<eightGibibytes>, kBackupSaved),
                    same("FourGibibytesMore", inPlaceOfMain<fourGibibytesMore>, kMainSaved),
                    same("ThreeGibibytes", inPlaceOfMain<threeGibibytes>, kBackupSaved),
                    Case{"ReadOnly", inPlaceOfMain<withMode<0400>>, kMainSaved,
                         "main, then main; file main, backup main"},
                    Case{"WriteOnly", inPlaceOfMain<withMode<0200>>, kMainSaved,
                         "nothing, then nothing; file main, backup backup"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Backup, Files,
    testing::Values(same("File", inPlaceOfBackup<secondName>, kMainSaved),
                    same("Missing", inPlaceOfBackup<nothing>, kMainSaved),
                    same("Empty", inPlaceOfBackup<emptyFile>, kMainSaved),
                    same("LinkToAFile", inPlaceOfBackup<linkToGood>, kMainSaved),
                    same("LinkToNothing", inPlaceOfBackup<linkToNothing>, kMainSaved),
                    same("LinkIntoNoDirectory", inPlaceOfBackup<linkIntoNoDirectory>,
                         kSavedWithoutBackup),
                    same("LinkToItself", inPlaceOfBackup<linkToItself>, kSavedWithoutBackup),
                    same("LinkToADirectory", inPlaceOfBackup<linkToDirectory>, kSavedWithoutBackup),
                    same("LinkToTheFile", inPlaceOfBackup<linkToMain>,
                         "main, then main+new; file main+new, backup main+new"),
                    same("SecondNameOfTheFile", inPlaceOfBackup<secondNameOfMain>,
                         "main, then main+new; file main+new, backup main+new"),
                    same("Directory", inPlaceOfBackup<directory>, kSavedWithoutBackup),
                    same("Pipe", inPlaceOfBackup<pipe>, kSavedWithoutBackup),
                    same("LinkToAPipe", inPlaceOfBackup<linkToPipe>, kSavedWithoutBackup),
                    same("Socket", inPlaceOfBackup<socket>, kSavedWithoutBackup),
                    same("NullDevice", inPlaceOfBackup<nullDevice>, kSavedWithoutBackup),
                    same("FullDevice", inPlaceOfBackup<fullDevice>, kSavedWithoutBackup),
                    same("EightGibibytes", inPlaceOfBackup<eightGibibytes>, kMainSaved),
                    Case{"ReadOnly", inPlaceOfBackup<withMode<0400>>, kMainSaved,
                         "main, then main+new; file main+new, backup backup"},
                    Case{"WriteOnly", inPlaceOfBackup<withMode<0200>>, kMainSaved,
                         "main, then main+new; file main+new, backup backup"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    OnlyBackup, Files,
    testing::Values(same("File", inPlaceOfOnlyBackup<secondName>, kBackupSaved),
                    same("Missing", inPlaceOfOnlyBackup<nothing>, kNothing),
                    same("Empty", inPlaceOfOnlyBackup<emptyFile>,
                         "nothing, then nothing; file empty, backup empty"),
                    same("LinkToAFile", inPlaceOfOnlyBackup<linkToGood>, kBackupSaved),
                    same("LinkToNothing", inPlaceOfOnlyBackup<linkToNothing>, kNothing),
                    same("LinkToItself", inPlaceOfOnlyBackup<linkToItself>, kNothing),
                    same("LinkToADirectory", inPlaceOfOnlyBackup<linkToDirectory>, kNothing),
                    same("Directory", inPlaceOfOnlyBackup<directory>, kNothing),
                    same("Pipe", inPlaceOfOnlyBackup<pipe>, kNothing),
                    same("LinkToAPipe", inPlaceOfOnlyBackup<linkToPipe>, kNothing),
                    same("Socket", inPlaceOfOnlyBackup<socket>, kNothing),
                    same("NullDevice", inPlaceOfOnlyBackup<nullDevice>, kNothingButEmptyMain),
                    same("ZeroDevice", inPlaceOfOnlyBackup<zeroDevice>, kNothingButEmptyMain),
                    same("EightGibibytes", inPlaceOfOnlyBackup<eightGibibytes>,
                         "nothing, then nothing; file empty, backup huge"),
                    same("FourGibibytesMore", inPlaceOfOnlyBackup<fourGibibytesMore>, kBackupSaved),
                    same("ReadOnly", inPlaceOfOnlyBackup<withMode<0400>>, kBackupSaved),
                    Case{"WriteOnly", inPlaceOfOnlyBackup<withMode<0200>>, kBackupSaved,
                         kNothingButBackup}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    BackupDirectory, Files,
    testing::Values(
        same("LinkToADirectory", inPlaceOfBackupDirectory<linkToGood>, kMainSaved),
        Case{"Missing", inPlaceOfBackupDirectory<nothing>, kMainSaved, kSavedWithoutBackup},
        same("File", inPlaceOfBackupDirectory<emptyFile>, kSavedWithoutBackup),
        same("LinkToNothing", inPlaceOfBackupDirectory<linkToNothing>, kSavedWithoutBackup),
        same("LinkToItself", inPlaceOfBackupDirectory<linkToItself>, kSavedWithoutBackup),
        same("Pipe", inPlaceOfBackupDirectory<pipe>, kSavedWithoutBackup),
        same("Socket", inPlaceOfBackupDirectory<socket>, kSavedWithoutBackup),
        same("NullDevice", inPlaceOfBackupDirectory<nullDevice>, kSavedWithoutBackup),
        same("ReadOnly", inPlaceOfBackupDirectory<withMode<0500>>, kMainSaved),
        same("NotReadable", inPlaceOfBackupDirectory<withMode<0300>>, kMainSaved),
        Case{"NotSearchable", inPlaceOfBackupDirectory<withMode<0600>>, kMainSaved,
             "main, then main+new; file main+new, backup backup"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Directory, Files,
    testing::Values(same("LinkToADirectory", inPlaceOfConfigDirectory<linkToGood>, kMainSaved),
                    same("Missing", inPlaceOfConfigDirectory<nothing>, kNothing),
                    same("File", inPlaceOfConfigDirectory<emptyFile>, kNothing),
                    same("LinkToNothing", inPlaceOfConfigDirectory<linkToNothing>, kNothing),
                    same("LinkToItself", inPlaceOfConfigDirectory<linkToItself>, kNothing),
                    same("Pipe", inPlaceOfConfigDirectory<pipe>, kNothing),
                    same("Socket", inPlaceOfConfigDirectory<socket>, kNothing),
                    same("NullDevice", inPlaceOfConfigDirectory<nullDevice>, kNothing),
                    same("ReadOnly", inPlaceOfConfigDirectory<withMode<0500>>, kMainSaved),
                    Case{"NotSearchable", inPlaceOfConfigDirectory<withMode<0600>>, kMainSaved,
                         "nothing, then nothing; file main, backup backup"}),
    nameOf);

// The backup is larger than the buffer of a pipe, so a restore into the pipe would block.
TEST(PipeInPlaceOfTheFile, IsNotFilledFromTheBackup) {
    const LoadedPlugin plugin;
    const Layout layout;
    const EnvironmentVariable variable("QV_CONFIG_DIR", layout.configDirectory());
    fs::remove(layout.mainFile());
    makePipe(layout.mainFile());
    writeFile(layout.backupFile(), documentOf({{1, std::string(200'000, 'x')}}));
    EXPECT_EQ(startSaveStart(plugin), "nothing, then nothing");
}

class FilesOfARunningHost : public testing::TestWithParam<Thing> {
  protected:
    void SetUp() override { ASSERT_EQ(plugin_.initialize(), QV_OK); }
    void TearDown() override {
        plugin_.finalize();
        for (const int descriptor : descriptorsBelow(layout_.path())) {
            ::close(descriptor);
        }
    }

    // Checks that registrations work while something else is at the path, and that a save succeeds
    // once the good file is back.
    void expectSavedOnceThePathIsFree(const std::string& path) const {
        EXPECT_EQ(plugin_.registerServices({{2, "meanwhile"}}), QV_OK);
        EXPECT_EQ(plugin_.registerServices({{2, "meanwhile still"}}), QV_OK);
        fs::rename(path, layout_.elsewhere("thing"));
        fs::rename(layout_.elsewhere("good"), path);
        EXPECT_EQ(plugin_.registerServices({{2, "after"}}), QV_OK);
        EXPECT_THAT(contentOf(layout_.mainFile()),
                    testing::Optional(documentOf({{1, "main"}, {2, "after"}})));
    }

    // The first member, because loading sets the directories in the environment.
    const LoadedPlugin plugin_;
    const Layout layout_;
    const EnvironmentVariable variable_{"QV_CONFIG_DIR", layout_.configDirectory()};
};

TEST_P(FilesOfARunningHost, MainIsSavedOnceItsPathIsFree) {
    fs::rename(layout_.mainFile(), layout_.elsewhere("good"));
    GetParam().put(layout_, layout_.mainFile());
    expectSavedOnceThePathIsFree(layout_.mainFile());
}

TEST_P(FilesOfARunningHost, OpenMainIsSavedOnceItsPathIsFree) {
    plugin_.registerServices({{2, "before"}});
    fs::rename(layout_.mainFile(), layout_.elsewhere("good"));
    GetParam().put(layout_, layout_.mainFile());
    expectSavedOnceThePathIsFree(layout_.mainFile());
}

TEST_P(FilesOfARunningHost, BackupIsMadeOnceItsPathIsFree) {
    fs::rename(layout_.backupFile(), layout_.elsewhere("good"));
    GetParam().put(layout_, layout_.backupFile());
    expectSavedOnceThePathIsFree(layout_.backupFile());
    EXPECT_THAT(contentOf(layout_.backupFile()),
                testing::Optional(documentOf({{1, "main"}, {2, "meanwhile still"}})));
}

INSTANTIATE_TEST_SUITE_P(Each, FilesOfARunningHost,
                         testing::Values(Thing{"LinkToItself", linkToItself},
                                         Thing{"Directory", directory}, Thing{"Pipe", pipe},
                                         Thing{"LinkToAPipe", linkToPipe}, Thing{"Socket", socket},
                                         Thing{"NullDevice", nullDevice},
                                         Thing{"FullDevice", fullDevice}),
                         [](const testing::TestParamInfo<Thing>& info) { return info.param.name; });

TEST(FileOfARunningHost, IsMadeAnewOnceADeviceInItsPlaceIsGone) {
    const LoadedPlugin plugin;
    const Layout layout;
    const EnvironmentVariable variable("QV_CONFIG_DIR", layout.configDirectory());
    plugin.initialize();
    plugin.registerServices({{2, "before"}});
    fs::remove(layout.mainFile());
    nullDevice(layout, layout.mainFile());
    plugin.registerServices({{2, "into the device"}});
    fs::remove(layout.mainFile());
    plugin.registerServices({{2, "after"}});
    EXPECT_THAT(contentOf(layout.mainFile()),
                testing::Optional(documentOf({{1, "main"}, {2, "after"}})));
    EXPECT_EQ(modeOf(layout.mainFile()), 0600U);
    plugin.finalize();
    for (const int descriptor : descriptorsBelow(layout.path())) {
        ::close(descriptor);
    }
}

class FileModes : public testing::TestWithParam<mode_t> {
  protected:
    // The first member, because loading sets the directories in the environment.
    const LoadedPlugin plugin_;
    const Layout layout_;
    const EnvironmentVariable variable_{"QV_CONFIG_DIR", layout_.configDirectory()};
};

TEST_P(FileModes, OfNewFilesFollowTheUmask) {
    const mode_t mask = GetParam();
    fs::remove(layout_.mainFile());
    asOrdinaryUser(layout_.path(), [&] {
        const UmaskGuard umask(mask);
        plugin_.initialize();
        EXPECT_EQ(modeOf(layout_.mainFile()), 0666U & ~mask);
        fs::remove(layout_.backupFile());
        plugin_.registerServices({{2, "new"}});
        EXPECT_EQ(modeOf(layout_.mainFile()), 0666U & ~mask);
        EXPECT_EQ(modeOf(layout_.backupFile()), 0666U & ~mask);
        fs::remove(layout_.mainFile());
        fs::remove(layout_.backupFile());
        fs::remove(layout_.backupDirectory());
        plugin_.registerServices({{3, "new"}});
        EXPECT_EQ(modeOf(layout_.mainFile()), 0600U & ~mask);
        EXPECT_EQ(modeOf(layout_.backupDirectory()), 0600U & ~mask);
        plugin_.finalize();
    });
}

TEST_P(FileModes, OfExistingFilesStay) {
    const UmaskGuard umask(GetParam());
    fs::permissions(layout_.mainFile(), fs::perms(0604));
    fs::permissions(layout_.backupFile(), fs::perms(0640));
    fs::permissions(layout_.backupDirectory(), fs::perms(0710));
    plugin_.initialize();
    plugin_.registerServices({{2, "new"}});
    plugin_.finalize();
    EXPECT_EQ(modeOf(layout_.mainFile()), 0604U);
    EXPECT_EQ(modeOf(layout_.backupFile()), 0640U);
    EXPECT_EQ(modeOf(layout_.backupDirectory()), 0710U);
}

INSTANTIATE_TEST_SUITE_P(Umask, FileModes, testing::Values(0, 022, 077));

TEST(FilesWithLongNames, CountAsMissing) {
    const LoadedPlugin plugin;
    const TemporaryDirectory directory;
    for (const std::string& name :
         {std::string(300, 'n'), std::string(2000, 'n'), std::string(5000, '/')}) {
        const EnvironmentVariable variable("QV_CONFIG_DIR", directory.path(name));
        EXPECT_EQ(startSaveStart(plugin), "nothing, then nothing") << name.size();
    }
    EXPECT_TRUE(fs::is_empty(directory.path()));
}

#ifndef QV_SANITIZED
// The plug-in reads the whole file into memory. The host may initialise the plug-in again later.
TEST(HugeFile, StartThrowsWhenMemoryRunsOut) {
    const LoadedPlugin plugin;
    const Layout layout;
    const EnvironmentVariable variable("QV_CONFIG_DIR", layout.configDirectory());
    fs::resize_file(layout.mainFile(), INT32_MAX);
    asOrdinaryUser(layout.path(), [&] {
        rlimit limit{};
        ASSERT_EQ(::getrlimit(RLIMIT_AS, &limit), 0);
        limit.rlim_cur = rlim_t{1} << 30;
        ASSERT_EQ(::setrlimit(RLIMIT_AS, &limit), 0);
        EXPECT_THROW(plugin.initialize(), std::bad_alloc);
        fs::resize_file(layout.mainFile(), kMain.size());
        EXPECT_EQ(startSaveStart(plugin), "main, then main+new");
    });
}
#endif

}  // namespace
}  // namespace qv::tests
