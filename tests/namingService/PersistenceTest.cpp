// SPDX-License-Identifier: Apache-2.0

// Tests what the plug-in stores in its configuration file, with real files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>

#include "platform/CoreFoundation/Documents.h"
#include "support/ConfigurationDocuments.h"
#include "support/EnvironmentVariable.h"
#include "support/FileEvents.h"
#include "support/Files.h"
#include "support/LoadedPlugin.h"
#include "support/TemporaryDirectory.h"
#include "support/UsualOrReduced.h"

namespace qv::tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

const std::string kEmptyRoot = "<plist><dict/></plist>";

std::string recorded(const std::string& name) {
    return contentOf(QV_TEST_DATA_DIR "/config/" + name).value();
}

// Loads a plug-in and makes a directory for its configuration, but does not initialise the plug-in.
class Persistence : public testing::Test {
  protected:
    void SetUp() override { std::filesystem::create_directory(backupDirectory); }
    void TearDown() override {
        plugin.finalize();
        for (const int descriptor : descriptorsBelow(directory_.path())) {
            ::close(descriptor);
        }
    }

    void restart() const {
        plugin.finalize();
        EXPECT_EQ(openDescriptors(), 0U);
        EXPECT_EQ(plugin.initialize(), QV_OK);
    }

    void startWith(const std::string& content) const {
        writeFile(path, content);
        EXPECT_EQ(plugin.initialize(), QV_OK);
    }

    std::size_t openDescriptors() const { return descriptorsBelow(directory()).size(); }

    const std::string& directory() const { return directory_.path(); }

    // Records the events of the file and its backup from now on.
    FileEvents watchFiles() const {
        return FileEvents({{directory(), ""}, {backupDirectory, "b/"}});
    }

    // The first member, because loading sets the directories in the environment.
    const LoadedPlugin plugin;

  private:
    TemporaryDirectory directory_;
    EnvironmentVariable variable_{"QV_CONFIG_DIR", directory_.path()};

  protected:
    const std::string path = directory_.path(kConfigurationFile);
    const std::string backupDirectory = directory_.path("backup");
    const std::string backup = backupDirectory + "/" + kConfigurationFile;
};

// A small binary document can hold large services, because all of them can refer to one address.
TEST_F(Persistence, ServicesThatShareALongAddressAreLoadedAndSaved) {
    constexpr std::int32_t kCount = usualOrReduced(10'000, 1'000);
    const std::string address(5000, 'a');
    Services services;
    for (std::int32_t id = 1; id <= kCount; ++id) {
        services.emplace_back(id, address);
    }
    const std::string binary = servicesWithOneAddress(kCount, address);
    ASSERT_LT(binary.size(), 230000U);
    writeFile(backup, kEmptyRoot);
    startWith(binary);
    EXPECT_TRUE(plugin.getServices() == services);
    EXPECT_TRUE(contentOf(path) == binary);

    services.emplace_back(kCount + 1, "b");
    plugin.registerServices({{kCount + 1, "b"}});
    EXPECT_TRUE(contentOf(path) == documentOf(services));
    restart();
    EXPECT_TRUE(plugin.getServices() == services);
}

TEST_F(Persistence, UnregisteredServiceComesBackAtARestart) {
    startWith(documentOf({{1, "a"}, {2, "b"}}));
    plugin.unregisterServices({1});
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(2, "b")));
    restart();
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(1, "a"), Service(2, "b")));
}

TEST_F(Persistence, OnlyAChangeIsSaved) {
    startWith(documentOf({{1, "a"}, {2, "b"}}));
    plugin.registerServices({{3, "c"}});
    const struct stat before = statusOf(path);
    FileEvents events = watchFiles();
    plugin.registerServices({{3, "c"}});
    plugin.registerServices({{2, "b"}, {1, "a"}, {2, "b"}});
    plugin.execute(QV_COMMAND_REGISTER_SERVICES, "");
    plugin.execute(QV_COMMAND_REGISTER_SERVICES, "\xff\xff");
    plugin.unregisterServices({1, 9});
    plugin.getServices();
    plugin.execute(QV_COMMAND_SET_DEBUG_LEVEL, "\x08\x01\x10\x05");
    plugin.finalize();
    // The only event is the closing of the descriptor, which was open for writing.
    EXPECT_THAT(events.take(), ElementsAre("written namingService.conf.plist"));
    const struct stat after = statusOf(path);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    EXPECT_THAT(contentOf(path), Optional(documentOf({{1, "a"}, {2, "b"}, {3, "c"}})));
    EXPECT_THAT(contentOf(backup), Optional(documentOf({{1, "a"}, {2, "b"}})));
}

TEST_F(Persistence, AddressThatChangesAndChangesBackIsSaved) {
    startWith(documentOf({{1, "a"}}));
    plugin.registerServices({{1, "b"}, {1, "a"}});
    EXPECT_THAT(contentOf(backup), Optional(documentOf({{1, "a"}})));
    EXPECT_THAT(contentOf(path), Optional(documentOf({{1, "a"}})));
}

TEST_F(Persistence, WithoutFileAndBackupServicesLiveInMemory) {
    plugin.initialize();
    EXPECT_EQ(plugin.registerServices({{1, "a"}}), QV_OK);
    EXPECT_EQ(plugin.registerServices({{2, "b"}}), QV_OK);
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(1, "a"), Service(2, "b")));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(std::filesystem::is_empty(backupDirectory));
    // The plug-in ignores a file that appears later, until the next start.
    writeFile(path, documentOf({{7, "g"}}));
    EXPECT_EQ(plugin.registerServices({{3, "c"}}), QV_OK);
    EXPECT_THAT(contentOf(path), Optional(documentOf({{7, "g"}})));
    restart();
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(7, "g")));
}

TEST_F(Persistence, ListWithABadElementIsDropped) {
    const std::string good =
        "<dict><key>id</key><integer>5</integer><key>address</key><string>e</string></dict>";
    for (const std::string bad : {"<string>a</string>", "<array/>", "<integer>1</integer>"}) {
        std::string list = good;
        list += bad;
        list += good;
        startWith("<plist><dict><key>Address</key><dict><key>services</key><array>" + list +
                  "</array></dict></dict></plist>");
        EXPECT_THAT(plugin.getServices(), IsEmpty());
        plugin.registerServices({{1, "a"}});
        EXPECT_THAT(contentOf(path), Optional(documentOf({{1, "a"}})));
        plugin.finalize();
    }
}

TEST_F(Persistence, StoredFieldThatDoesNotFitCountsAsAbsent) {
    startWith(
        "<plist><dict><key>Address</key><dict><key>services</key><array>"
        "<dict><key>id</key><string>5</string><key>address</key><string>a</string></dict>"
        "<dict><key>id</key><integer>6</integer><key>address</key><integer>1</integer></dict>"
        "<dict><key>id</key><integer>2147483648</integer><key>address</key><string>b</string>"
        "</dict></array></dict></dict></plist>");
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(0, "b"), Service(6, "")));
}

TEST_F(Persistence, StoredAddressEndsAtItsFirstNul) {
    startWith(kEmptyRoot);
    const std::string address("a\0\xff", 3);
    plugin.registerServices({{1, address}});
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(1, address)));
    EXPECT_THAT(contentOf(path), Optional(documentOf({{1, "a"}})));
    restart();
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(1, "a")));
}

TEST_F(Persistence, AddressThatIsNotUtf8KeepsEverythingFromBeingSaved) {
    startWith(documentOf({{1, "a"}}));
    FileEvents events = watchFiles();
    EXPECT_EQ(plugin.registerServices({{2, "\xff"}}), QV_OK);
    EXPECT_EQ(plugin.registerServices({{3, "c"}}), QV_OK);
    EXPECT_THAT(plugin.getServices(),
                ElementsAre(Service(1, "a"), Service(2, "\xff"), Service(3, "c")));
    // The plug-in opens neither the file nor the backup.
    EXPECT_THAT(events.take(), IsEmpty());
    EXPECT_THAT(contentOf(path), Optional(documentOf({{1, "a"}})));
    EXPECT_FALSE(std::filesystem::exists(backup));

    plugin.registerServices({{2, "b"}});
    EXPECT_THAT(contentOf(path), Optional(documentOf({{1, "a"}, {2, "b"}, {3, "c"}})));
    EXPECT_THAT(contentOf(backup), Optional(documentOf({{1, "a"}})));
}

TEST_F(Persistence, SaveThatFailsIsMadeUpForByTheNext) {
    startWith(documentOf({{1, "a"}}));
    std::filesystem::remove(path);
    EXPECT_EQ(plugin.registerServices({{2, "b"}}), QV_OK);
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(1, "a"), Service(2, "b")));
    EXPECT_FALSE(std::filesystem::exists(path));
    writeFile(path, "someone else's");
    plugin.registerServices({{3, "c"}});
    EXPECT_THAT(contentOf(path), Optional(documentOf({{1, "a"}, {2, "b"}, {3, "c"}})));
    EXPECT_THAT(contentOf(backup), Optional(std::string("someone else's")));
}

TEST_F(Persistence, FinalizeClosesTheFileAndSavesNothing) {
    startWith(kEmptyRoot);
    EXPECT_EQ(openDescriptors(), 0U);
    plugin.registerServices({{1, "a"}, {2, "b"}});
    EXPECT_EQ(openDescriptors(), 1U);
    plugin.unregisterServices({1});
    plugin.finalize();
    EXPECT_EQ(openDescriptors(), 0U);
    EXPECT_THAT(contentOf(path), Optional(documentOf({{1, "a"}, {2, "b"}})));
    plugin.finalize();
    EXPECT_THAT(contentOf(path), Optional(documentOf({{1, "a"}, {2, "b"}})));
}

TEST_F(Persistence, SavedFilesAreAsRecorded) {
    startWith(kEmptyRoot);
    plugin.registerServices({{1, "unix:/var/run/lorx/supervisor.sock"},
                             {-2, "xpc:com.vornak.lorx.diagnostics"},
                             {300, "tcp:[::1]:4510?a=<b>&c=\"d\"'"},
                             {4, "caf\u00e9 \u4e2d \U0001F600"},
                             {5, ""}});
    EXPECT_EQ(contentOf(path).value(), recorded("services.saved.plist"));
}

TEST_F(Persistence, OtherKeysOfEveryTypeAreKept) {
    startWith(recorded("other-keys.plist"));
    EXPECT_THAT(plugin.getServices(),
                ElementsAre(Service(-1, "tcp:[::1]:4510"), Service(7, "unix:/var/run/a&b.sock")));
    plugin.registerServices({{3, "new"}});
    EXPECT_EQ(contentOf(path).value(), recorded("other-keys.saved.plist"));
    EXPECT_EQ(contentOf(backup).value(), recorded("other-keys.plist"));
    // A restart and another save give the same bytes.
    restart();
    plugin.registerServices({{3, "newer"}});
    plugin.registerServices({{3, "new"}});
    EXPECT_EQ(contentOf(path).value(), recorded("other-keys.saved.plist"));
}

}  // namespace
}  // namespace qv::tests
