// SPDX-License-Identifier: Apache-2.0

// Looks at the files while a host serves, and after it ended in peace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"
#include "support/FileModes.h"
#include "support/Files.h"

namespace qv::host {
namespace {

using testing::Contains;
using testing::Each;
using testing::EndsWith;
using testing::Not;
using testing::StartsWith;
using tests::Services;

constexpr char kDatabase[] = "SQLite format 3";

TEST(CleanEnd, LeavesOneDatabaseFileAndTheWholeDirectoryInTheFile) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    {
        const DirectoryClient client(host);
        ASSERT_EQ(client.registerServices(manyServices(1, 300)).code, kDone);
        EXPECT_EQ(client.withdraw({7}).code, kDone);
    }
    const Services last = DirectoryClient(host).list();
    EXPECT_EQ(stop(host), 0);
    EXPECT_EQ(servicesIn(configurationOf(host)), last);
    EXPECT_THAT(tests::contentOf(recordOf(host)).value_or("no record"), StartsWith(kDatabase));
    const std::vector<std::string> files = filesBelow(directoryOf(host));
    for (const char* end : {"-wal", "-shm", "-journal"}) {
        EXPECT_THAT(files, Each(Not(EndsWith(end))));
    }
    ASSERT_TRUE(host.start());
    EXPECT_EQ(DirectoryClient(host).list(), last);
}

TEST(CleanEnd, NothingChangesInAStartWithoutClients) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    ASSERT_EQ(DirectoryClient(host).registerServices(manyServices(1, 3)).code, kDone);
    EXPECT_EQ(stop(host), 0);
    const std::string file = readFile(configurationOf(host));
    const ino_t inode = tests::inodeOf(configurationOf(host));
    ASSERT_TRUE(host.start());
    EXPECT_EQ(stop(host), 0);
    EXPECT_EQ(readFile(configurationOf(host)), file);
    EXPECT_EQ(tests::inodeOf(configurationOf(host)), inode);
}

// The plug-in saves nothing after a withdrawal alone.
TEST(FileThatFollows, LacksWithdrawnServicesAfterASync) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    const DirectoryClient client(host);
    ASSERT_EQ(client.registerServices(manyServices(1, 3)).code, kDone);
    EXPECT_EQ(client.sync().code, kDone);
    EXPECT_EQ(servicesIn(configurationOf(host)), manyServices(1, 3));
    EXPECT_EQ(client.withdraw({2}).code, kDone);
    EXPECT_EQ(client.sync().code, kDone);
    EXPECT_EQ(servicesIn(configurationOf(host)), client.list());
    EXPECT_EQ(client.withdraw({1, 3}).code, kDone);
    EXPECT_EQ(client.sync().code, kDone);
    EXPECT_EQ(servicesIn(configurationOf(host)), Services());
    EXPECT_EQ(client.registerServices(manyServices(5, 1)).code, kDone);
    EXPECT_EQ(client.sync().code, kDone);
    EXPECT_EQ(servicesIn(configurationOf(host)), manyServices(5, 1));
}

TEST(FileThatFollows, LacksWithdrawnServicesAfterACleanEnd) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    {
        const DirectoryClient client(host);
        ASSERT_EQ(client.registerServices(manyServices(1, 3)).code, kDone);
        EXPECT_EQ(client.sync().code, kDone);
        EXPECT_EQ(client.withdraw({1, 2, 3}).code, kDone);
    }
    EXPECT_EQ(stop(host), 0);
    EXPECT_EQ(servicesIn(configurationOf(host)), Services());
    ASSERT_TRUE(host.start());
    EXPECT_EQ(DirectoryClient(host).list(), Services());
}

TEST(FileThatFollows, KeepsItsOtherKeys) {
    HostProcess host;
    tests::writeFile(configurationOf(host),
                     "<plist version='1.0'><dict><key>Other</key><string>stays</string></dict>"
                     "</plist>");
    ASSERT_TRUE(host.start());
    const DirectoryClient client(host);
    ASSERT_EQ(client.registerServices(manyServices(1, 1)).code, kDone);
    EXPECT_EQ(client.withdraw({1}).code, kDone);
    EXPECT_EQ(client.sync().code, kDone);
    EXPECT_THAT(readFile(configurationOf(host)), testing::HasSubstr("<string>stays</string>"));
}

TEST(RecordOfAHost, IsForItsOwnerAlone) {
    const tests::UmaskGuard open(0);
    HostProcess host;
    ASSERT_TRUE(host.start());
    ASSERT_EQ(DirectoryClient(host).registerServices(manyServices(1, 1)).code, kDone);
    const std::vector<std::string> files = filesBelow(directoryOf(host));
    EXPECT_THAT(files, Contains(recordOf(host)));
    EXPECT_THAT(files, Each(Not(EndsWith("-shm"))));
    for (const std::string& file : files) {
        if (file.find(".record") != std::string::npos) {
            EXPECT_EQ(tests::modeOf(file), 0600U) << file;
        }
    }
}

TEST(RecordOfAHost, IsNotWrittenThroughALink) {
    HostProcess host;
    const std::string target = host.files().write("target", "");
    ASSERT_EQ(::symlink(target.c_str(), recordOf(host).c_str()), 0);
    if (host.start()) {
        const RawAnswer answer = DirectoryClient(host).registerServices(manyServices(1, 1));
        EXPECT_EQ(answer.code, kNotKept);
        EXPECT_NE(answer.bytes, "");
        EXPECT_EQ(stop(host), 0);
    } else {
        EXPECT_EQ(host.wait(), 1);
        EXPECT_THAT(host.errors(), testing::HasSubstr(recordOf(host)));
    }
    EXPECT_EQ(readFile(target), "");
}

}  // namespace
}  // namespace qv::host
