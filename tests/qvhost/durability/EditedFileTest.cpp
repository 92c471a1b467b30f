// SPDX-License-Identifier: Apache-2.0

// Changes the configuration file while no host runs, or before a reload. An edit by hand counts. A
// file that is damaged or missing does not: the host makes it good from its record.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"
#include "qvhost/server/NotifySocket.h"
#include "support/ConfigurationDocuments.h"
#include "support/Files.h"

namespace qv::host {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using tests::Services;

const Services kServices = manyServices(1, 3);
// One service is changed, one is withdrawn, and one is added.
const Services kEdited = {{1, "unix:/run/edited.sock"}, {3, kServices[2].second}, {9, "tcp:9"}};

enum class End { Clean, Killed };

class EditedFile : public testing::Test {
  protected:
    // Lets a host bring the services to the file and end.
    void serve(End end, const Services& services = kServices) {
        ASSERT_TRUE(host_.start());
        {
            const DirectoryClient client(host_);
            ASSERT_EQ(client.registerServices(services).code, kDone);
            EXPECT_EQ(client.sync().code, kDone);
        }
        if (end == End::Clean) {
            EXPECT_EQ(stop(host_), 0);
        } else {
            host_.signal(SIGKILL);
            host_.wait();
        }
    }

    std::string file() const { return configurationOf(host_); }

    // Starts the host, which must have the services, in the file also, and after a kill.
    void expectAfterStart(const Services& services) {
        ASSERT_TRUE(host_.start()) << host_.errors();
        EXPECT_EQ(DirectoryClient(host_).list(), services);
        EXPECT_EQ(DirectoryClient(host_).sync().code, kDone);
        EXPECT_EQ(servicesIn(file()), services);
        ASSERT_TRUE(killAndStart(host_)) << host_.errors();
        EXPECT_EQ(DirectoryClient(host_).list(), services);
    }

    HostProcess host_;
};

TEST_F(EditedFile, CountsAfterACleanEnd) {
    serve(End::Clean);
    tests::writeFile(file(), tests::documentOf(kEdited));
    expectAfterStart(kEdited);
}

TEST_F(EditedFile, CountsAfterAKillIfTheFileWasInStep) {
    serve(End::Killed);
    tests::replaceFile(file(), tests::documentOf(kEdited));
    expectAfterStart(kEdited);
}

TEST_F(EditedFile, CountsAlthoughAServiceWasWithdrawnBefore) {
    serve(End::Clean);
    ASSERT_TRUE(host_.start());
    {
        const DirectoryClient client(host_);
        EXPECT_EQ(client.withdraw({2}).code, kDone);
        EXPECT_EQ(client.sync().code, kDone);
    }
    EXPECT_EQ(stop(host_), 0);
    const std::string before = readFile(file());
    ASSERT_TRUE(host_.start());
    EXPECT_EQ(DirectoryClient(host_).list(), (Services{kServices[0], kServices[2]}));
    EXPECT_EQ(stop(host_), 0);
    // Nobody edited the file, so the withdrawal stays.
    EXPECT_EQ(readFile(file()), before);
    tests::writeFile(file(), tests::documentOf(kEdited));
    expectAfterStart(kEdited);
}

TEST_F(EditedFile, IsAdoptedByAReload) {
    const NotifySocket manager(host_);
    ASSERT_TRUE(host_.start());
    manager.waitFor("READY=1");
    const DirectoryClient client(host_);
    ASSERT_EQ(client.registerServices(kServices).code, kDone);
    EXPECT_EQ(client.sync().code, kDone);
    tests::writeFile(file(), tests::documentOf(kEdited));
    host_.signal(SIGHUP);
    manager.waitFor("RELOADING=1");
    manager.waitFor("READY=1");
    EXPECT_EQ(client.list(), kEdited);
    ASSERT_TRUE(killAndStart(host_)) << host_.errors();
    EXPECT_EQ(DirectoryClient(host_).list(), kEdited);
}

// What stands in the file, and whether the plug-in would turn to its backup.
struct BadContent {
    const char* bytes;
    bool isDamaged;
};

class FileThatDoesNotCount : public EditedFile, public testing::WithParamInterface<BadContent> {};

TEST_P(FileThatDoesNotCount, IsSetAsideAndMadeGood) {
    for (const End end : {End::Clean, End::Killed}) {
        serve(end);
        const std::optional<Services> backup = servicesIn(backupOf(host_));
        const std::string bytes = GetParam().bytes;
        tests::writeFile(file(), bytes);
        ASSERT_TRUE(host_.start()) << host_.errors();
        EXPECT_THAT(host_.errors(), HasSubstr(file()));
        EXPECT_EQ(DirectoryClient(host_).list(), kServices);
        EXPECT_EQ(servicesIn(file()), kServices);
        EXPECT_THAT(copiesSetAside(host_, bytes), Not(IsEmpty()));
        EXPECT_EQ(stop(host_), 0);
        if (GetParam().isDamaged) {
            // The plug-in must not copy the file over its backup, the last resort of a directory
            // without a record.
            EXPECT_EQ(servicesIn(backupOf(host_)), backup);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Each, FileThatDoesNotCount,
    testing::Values(
        BadContent{"no property list", true},
        BadContent{"<plist version='1.0'><dict><key>Address</key><dict><key>services</key><array>",
                   true},
        BadContent{"<plist version='1.0'><array/></plist>", true},
        BadContent{"<plist version='1.0'><dict/></plist>", false},
        BadContent{"<plist version='1.0'><dict><key>Address</key><string>text</string></dict>"
                   "</plist>",
                   false},
        BadContent{"<plist version='1.0'><dict><key>Address</key><dict><key>services</key><array>"
                   "<string>text</string></array></dict></dict></plist>",
                   false}));

TEST_F(EditedFile, ThatIsMissingIsMadeAnewAndNotRestoredFromTheBackup) {
    serve(End::Clean);
    ASSERT_TRUE(host_.start());
    {
        const DirectoryClient client(host_);
        // The backup is one save behind.
        ASSERT_EQ(client.registerServices(kEdited).code, kDone);
        EXPECT_EQ(client.sync().code, kDone);
    }
    const Services last = DirectoryClient(host_).list();
    EXPECT_EQ(stop(host_), 0);
    std::filesystem::remove(file());
    expectAfterStart(last);
}

TEST_F(EditedFile, ThatIsDamagedLosesNoOtherKeys) {
    tests::writeFile(file(),
                     "<plist version='1.0'><dict><key>Other</key><string>stays</string></dict>"
                     "</plist>");
    serve(End::Clean);
    tests::writeFile(file(), "damage");
    expectAfterStart(kServices);
    EXPECT_THAT(readFile(file()), HasSubstr("<string>stays</string>"));
}

TEST_F(EditedFile, OnlyTheNewestFiveCopiesStay) {
    serve(End::Clean);
    for (int i = 0; i < 7; ++i) {
        tests::writeFile(file(), "damage " + std::to_string(i));
        ASSERT_TRUE(host_.start()) << host_.errors();
        EXPECT_EQ(DirectoryClient(host_).list(), kServices);
        EXPECT_EQ(stop(host_), 0);
    }
    for (int i = 0; i < 7; ++i) {
        EXPECT_THAT(copiesSetAside(host_, "damage " + std::to_string(i)), SizeIs(i < 2 ? 0 : 1))
            << i;
    }
}

}  // namespace
}  // namespace qv::host
