// SPDX-License-Identifier: Apache-2.0

// Puts other things in place of the configuration file, of its backup and of their directories, and
// checks what a start and a save do then, as root and as another user.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <new>
#include <optional>
#include <ostream>
#include <string>
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
        makePipe(elsewhere("pipe"));
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

const std::string kMainSaved = "main, then main+new; file main+new, backup main";
const std::string kBackupSaved = "backup, then backup+new; file backup+new, backup backup";
const std::string kSavedWithoutBackup = "main, then main+new; file main+new, backup none";
const std::string kNothing = "nothing, then nothing; file none, backup none";
const std::string kNothingButEmptyMain = "nothing, then nothing; file empty, backup none";
const std::string kNothingButBackup = "nothing, then nothing; file none, backup backup";

// Puts something at a path. The good file or directory is at elsewhere("good") then.
using Put = void (*)(const Layout& layout, const std::string& path);

void putGood(const Layout& layout, const std::string& path) {
    fs::rename(layout.elsewhere("good"), path);
}

template <int Mode>
void putWithMode(const Layout& layout, const std::string& path) {
    putGood(layout, path);
    fs::permissions(path, fs::perms(Mode));
}

const std::map<std::string, Put> kThings = {
    {"Nothing", [](const Layout& /*layout*/, const std::string& /*path*/) {}},
    {"EmptyFile", [](const Layout& /*layout*/, const std::string& path) { writeFile(path, ""); }},
    {"DamagedFile",
     [](const Layout& /*layout*/, const std::string& path) { writeFile(path, "<plist><dict>"); }},
    {"SecondNameOfTheGoodOne",
     [](const Layout& layout, const std::string& path) {
         fs::create_hard_link(layout.elsewhere("good"), path);
     }},
    {"SecondNameOfTheFile",
     [](const Layout& layout, const std::string& path) {
         fs::create_hard_link(layout.mainFile(), path);
     }},
    {"LinkToItself",
     [](const Layout& /*layout*/, const std::string& path) { fs::create_symlink(path, path); }},
    {"Directory",
     [](const Layout& /*layout*/, const std::string& path) { fs::create_directory(path); }},
    {"Pipe", [](const Layout& /*layout*/, const std::string& path) { makePipe(path); }},
    {"Socket", [](const Layout& /*layout*/, const std::string& path) { makeSocket(path); }},
    // These files are sparse.
    {"EightGibibytes",
     [](const Layout& /*layout*/, const std::string& path) {
         writeFile(path, "");
         fs::resize_file(path, 2 * kFourGibibytes);
     }},
    {"FourGibibytesMore",
     [](const Layout& layout, const std::string& path) {
         putGood(layout, path);
         fs::resize_file(path, fs::file_size(path) + kFourGibibytes);
     }},
    {"ThreeGibibytes",
     [](const Layout& layout, const std::string& path) {
         putGood(layout, path);
         fs::resize_file(path, kFourGibibytes / 4 * 3);
     }},
    {"Mode0400", putWithMode<0400>},
    {"Mode0200", putWithMode<0200>},
    {"Mode0500", putWithMode<0500>},
    {"Mode0300", putWithMode<0300>},
    {"Mode0600", putWithMode<0600>},
};

// The targets of links. A relative one lies below the path of the layout.
const std::map<std::string, fs::path> kLinks = {
    {"LinkToTheGoodOne", "elsewhere/good"},
    {"LinkToTheFile", std::string("config/") + kConfigurationFile},
    {"LinkToNothing", "elsewhere/nothing"},
    {"LinkIntoNoDirectory", "elsewhere/no/directory"},
    {"LinkToADirectory", "elsewhere"},
    {"LinkToAPipe", "elsewhere/pipe"},
    {"NullDevice", "/dev/null"},
    {"ZeroDevice", "/dev/zero"},
    {"FullDevice", "/dev/full"},
};

void putInPlaceOf(const std::string& path, const std::string& thing, const Layout& layout) {
    fs::rename(path, layout.elsewhere("good"));
    const auto link = kLinks.find(thing);
    if (link != kLinks.end()) {
        fs::create_symlink(layout.path() / link->second, path);
    } else {
        kThings.at(thing)(layout, path);
    }
}

// The outcome of some things for root and for another user: the services of both starts, and what
// the file and the backup hold at the end. Both have the same outcome if only one is given.
struct Outcome {
    std::vector<std::string> things;
    std::string root;
    std::optional<std::string> other = std::nullopt;
};

using Path = std::string (Layout::*)() const;

struct Case {
    Path path;
    // Without the file, the start uses the backup. With the file, only the save does.
    bool hasMain;
    std::string thing;
    std::string root;
    std::string other;
};

std::ostream& operator<<(std::ostream& out, const Case& oneCase) {
    return out << oneCase.thing;
}

std::vector<Case> casesOf(Path path, const std::vector<Outcome>& outcomes, bool hasMain = true) {
    std::vector<Case> cases;
    for (const auto& [things, root, other] : outcomes) {
        for (const std::string& thing : things) {
            cases.push_back({path, hasMain, thing, root, other.value_or(root)});
        }
    }
    return cases;
}

class Files : public testing::TestWithParam<Case> {
  protected:
    void SetUp() override {
        if (!GetParam().hasMain) {
            fs::remove(layout_.mainFile());
        }
        putInPlaceOf((layout_.*GetParam().path)(), GetParam().thing, layout_);
    }

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
    expectOutcome(GetParam().root);
}

TEST_P(Files, OfAnotherUser) {
    asOrdinaryUser(layout_.path(), [this] { expectOutcome(GetParam().other); });
}

std::string nameOf(const testing::TestParamInfo<Case>& info) {
    return info.param.thing;
}

const std::string kBackupLinkedToMain = "main, then main+new; file main+new, backup main+new";
const std::string kOldBackup = "main, then main+new; file main+new, backup backup";

INSTANTIATE_TEST_SUITE_P(
    Main, Files,
    testing::ValuesIn(
        casesOf(&Layout::mainFile,
                {{{"SecondNameOfTheGoodOne", "LinkToTheGoodOne", "FourGibibytesMore"}, kMainSaved},
                 {{"Nothing", "EmptyFile", "DamagedFile", "LinkToNothing", "EightGibibytes",
                   "ThreeGibibytes"},
                  kBackupSaved},
                 {{"LinkIntoNoDirectory", "LinkToItself", "LinkToADirectory", "Directory", "Pipe",
                   "LinkToAPipe", "Socket", "NullDevice", "ZeroDevice", "FullDevice"},
                  kNothingButBackup},
                 {{"Mode0400"}, kMainSaved, "main, then main; file main, backup main"},
                 {{"Mode0200"}, kMainSaved, "nothing, then nothing; file main, backup backup"}})),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Backup, Files,
    testing::ValuesIn(casesOf(&Layout::backupFile,
                              {{{"SecondNameOfTheGoodOne", "Nothing", "EmptyFile",
                                 "LinkToTheGoodOne", "LinkToNothing", "EightGibibytes"},
                                kMainSaved},
                               {{"LinkIntoNoDirectory", "LinkToItself", "LinkToADirectory",
                                 "Directory", "Pipe", "LinkToAPipe", "Socket", "NullDevice",
                                 "FullDevice"},
                                kSavedWithoutBackup},
                               {{"LinkToTheFile", "SecondNameOfTheFile"}, kBackupLinkedToMain},
                               {{"Mode0400", "Mode0200"}, kMainSaved, kOldBackup}})),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    OnlyBackup, Files,
    testing::ValuesIn(
        casesOf(&Layout::backupFile,
                {{{"SecondNameOfTheGoodOne", "LinkToTheGoodOne", "FourGibibytesMore", "Mode0400"},
                  kBackupSaved},
                 {{"Nothing", "LinkToNothing", "LinkToItself", "LinkToADirectory", "Directory",
                   "Pipe", "LinkToAPipe", "Socket"},
                  kNothing},
                 {{"NullDevice", "ZeroDevice"}, kNothingButEmptyMain},
                 {{"EmptyFile"}, "nothing, then nothing; file empty, backup empty"},
                 {{"EightGibibytes"}, "nothing, then nothing; file empty, backup huge"},
                 {{"Mode0200"}, kBackupSaved, kNothingButBackup}},
                false)),
    nameOf);

INSTANTIATE_TEST_SUITE_P(BackupDirectory, Files,
                         testing::ValuesIn(casesOf(&Layout::backupDirectory,
                                                   {{{"LinkToTheGoodOne", "Mode0500", "Mode0300"},
                                                     kMainSaved},
                                                    {{"EmptyFile", "LinkToNothing", "LinkToItself",
                                                      "Pipe", "Socket", "NullDevice"},
                                                     kSavedWithoutBackup},
                                                    {{"Nothing"}, kMainSaved, kSavedWithoutBackup},
                                                    {{"Mode0600"}, kMainSaved, kOldBackup}})),
                         nameOf);

INSTANTIATE_TEST_SUITE_P(
    Directory, Files,
    testing::ValuesIn(casesOf(
        &Layout::configDirectory,
        {{{"LinkToTheGoodOne", "Mode0500"}, kMainSaved},
         {{"Nothing", "EmptyFile", "LinkToNothing", "LinkToItself", "Pipe", "Socket", "NullDevice"},
          kNothing},
         {{"Mode0600"}, kMainSaved, "nothing, then nothing; file main, backup backup"}})),
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

class FilesOfARunningHost : public testing::TestWithParam<std::string> {
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
    putInPlaceOf(layout_.mainFile(), GetParam(), layout_);
    expectSavedOnceThePathIsFree(layout_.mainFile());
}

TEST_P(FilesOfARunningHost, OpenMainIsSavedOnceItsPathIsFree) {
    plugin_.registerServices({{2, "before"}});
    putInPlaceOf(layout_.mainFile(), GetParam(), layout_);
    expectSavedOnceThePathIsFree(layout_.mainFile());
}

TEST_P(FilesOfARunningHost, BackupIsMadeOnceItsPathIsFree) {
    putInPlaceOf(layout_.backupFile(), GetParam(), layout_);
    expectSavedOnceThePathIsFree(layout_.backupFile());
    EXPECT_THAT(contentOf(layout_.backupFile()),
                testing::Optional(documentOf({{1, "main"}, {2, "meanwhile still"}})));
}

INSTANTIATE_TEST_SUITE_P(Each, FilesOfARunningHost,
                         testing::Values("LinkToItself", "Directory", "Pipe", "LinkToAPipe",
                                         "Socket", "NullDevice", "FullDevice"),
                         [](const testing::TestParamInfo<std::string>& info) {
                             return info.param;
                         });

TEST(FileOfARunningHost, IsMadeAnewOnceADeviceInItsPlaceIsGone) {
    const LoadedPlugin plugin;
    const Layout layout;
    const EnvironmentVariable variable("QV_CONFIG_DIR", layout.configDirectory());
    plugin.initialize();
    plugin.registerServices({{2, "before"}});
    putInPlaceOf(layout.mainFile(), "NullDevice", layout);
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
