// SPDX-License-Identifier: Apache-2.0

// Removes and damages the record while no host runs. The file counts then.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"
#include "support/ConfigurationDocuments.h"
#include "support/Files.h"

namespace qv::host {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tests::Services;

constexpr std::size_t kPage = 4096;

class LostRecord : public testing::Test {
  protected:
    LostRecord() : services_(manyServices(1, 501)) {}

    void SetUp() override {
        ASSERT_TRUE(host_.start());
        ASSERT_EQ(DirectoryClient(host_).registerServices(services_).code, kDone);
        EXPECT_EQ(stop(host_), 0);
    }

    // Starts the host, which has the services, and keeps changes in a new record.
    void expectServices() {
        ASSERT_TRUE(host_.start()) << host_.errors();
        const std::string journal = host_.errors();
        const DirectoryClient client(host_);
        EXPECT_TRUE(client.list() == services_);
        EXPECT_EQ(client.withdraw({1}).code, kDone);
        const Services last(services_.begin() + 1, services_.end());
        ASSERT_TRUE(killAndStart(host_)) << host_.errors();
        EXPECT_TRUE(DirectoryClient(host_).list() == last);
        journal_ = journal;
    }

    HostProcess host_;
    Services services_;
    std::string journal_;  // of the first start
};

TEST_F(LostRecord, WithoutARecordTheFileCounts) {
    std::filesystem::remove(recordOf(host_));
    expectServices();
}

TEST_F(LostRecord, FileOfAHostWithoutARecordIsTakenOver) {
    std::filesystem::remove(recordOf(host_));
    services_ = {{1, "unix:/run/1.sock"}, {7, "unix:/run/7.sock"}};
    tests::writeFile(configurationOf(host_), tests::documentOf(services_));
    expectServices();
}

// Without a record the rules of the plug-in hold, which turns to its backup.
TEST_F(LostRecord, WithoutARecordTheBackupOfADamagedFileCounts) {
    std::filesystem::remove(recordOf(host_));
    const std::string directory = directoryOf(host_) + "/backup";
    std::filesystem::create_directory(directory);
    // The plug-in makes a directory that only root can use.
    std::filesystem::permissions(directory, std::filesystem::perms::owner_all);
    tests::writeFile(backupOf(host_), tests::documentOf(services_));
    tests::writeFile(configurationOf(host_), "damage");
    expectServices();
}

TEST_F(LostRecord, RecordThatIsNoDatabaseIsSetAside) {
    const std::string garbage(10 * kPage, 'g');
    tests::writeFile(recordOf(host_), garbage);
    expectServices();
    EXPECT_THAT(copiesSetAside(host_, garbage), Not(IsEmpty()));
    EXPECT_THAT(journal_, HasSubstr(recordOf(host_)));
}

TEST_F(LostRecord, DamagedDatabaseIsSetAside) {
    std::string damaged = tests::contentOf(recordOf(host_)).value_or("");
    ASSERT_GT(damaged.size(), 2 * kPage);
    damaged.replace(kPage, damaged.size() - kPage, damaged.size() - kPage, '\xff');
    tests::writeFile(recordOf(host_), damaged);
    expectServices();
    EXPECT_THAT(copiesSetAside(host_, damaged), Not(IsEmpty()));
    EXPECT_THAT(journal_, HasSubstr(recordOf(host_)));
}

// Something else stands in the record's place. The host neither removes it nor loses services.
TEST_F(LostRecord, DirectoryInItsPlaceStays) {
    std::filesystem::remove(recordOf(host_));
    std::filesystem::create_directory(recordOf(host_));
    if (host_.start()) {
        const DirectoryClient client(host_);
        const RawAnswer answer = client.registerServices(manyServices(1000, 1));
        EXPECT_EQ(answer.code, kNotKept);
        EXPECT_NE(answer.bytes, "");
        EXPECT_TRUE(client.list() == merged(services_, manyServices(1000, 1)));
        EXPECT_EQ(stop(host_), 0);
    } else {
        EXPECT_EQ(host_.wait(), 1);
        EXPECT_THAT(host_.errors(), HasSubstr(recordOf(host_)));
        EXPECT_TRUE(servicesIn(configurationOf(host_)) == services_);
    }
    EXPECT_TRUE(std::filesystem::is_directory(recordOf(host_)));
}

}  // namespace
}  // namespace qv::host
