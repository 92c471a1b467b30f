// SPDX-License-Identifier: Apache-2.0

// Fills the disk under a host. The host goes on, tells that changes are not kept, loses nothing
// that it acknowledged, and keeps everything as soon as there is room.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"
#include "qvhost/durability/SmallDisk.h"

namespace qv::host {
namespace {

using testing::Contains;
using testing::Not;
using tests::Service;
using tests::Services;

const Services kKept = manyServices(1, 501);
const Service kWithdrawn = kKept[250];
const Service kLate = {90'001, "unix:/run/late.sock"};
const Service kLater = {90'002, "unix:/run/later.sock"};

enum class Shortage { OfSpace, OfFileSize };

class FullDiskUnderHost : public testing::TestWithParam<Shortage> {
  protected:
    static void run(const DiskTest& test) {
        if (GetParam() == Shortage::OfSpace) {
            withSmallDisk(test);
        } else {
            withLimitedFiles(test);
        }
    }

    // Fills the disk, and registers services until one is not kept. The record may have room of its
    // own for some. Returns all that were kept.
    static Services fill(const DirectoryClient& client, SmallDisk& disk) {
        Services kept = kKept;
        disk.fill();
        constexpr int kMost = 1000;
        constexpr std::size_t kLong = 4000;
        for (int32_t id = 10'000; id < 10'000 + kMost; ++id) {
            const Service service = {id, std::string(kLong, 'a')};
            const RawAnswer answer = client.registerServices({service});
            if (answer.code == kNotKept) {
                EXPECT_NE(answer.bytes, "");
                return kept;
            }
            EXPECT_EQ(answer.code, kDone) << answer.bytes;
            kept = merged(kept, {service});
        }
        ADD_FAILURE() << "the host keeps services on a full disk";
        return kept;
    }

    // Makes three changes, which the disk has no room for.
    static void changeInVain(const DirectoryClient& client) {
        for (const Service& service : {kLate, kLater}) {
            const RawAnswer answer = client.registerServices({service});
            EXPECT_EQ(answer.code, kNotKept);
            EXPECT_NE(answer.bytes, "");
        }
        EXPECT_EQ(client.withdraw({kWithdrawn.first}).code, kNotKept);
        // A repetition changes nothing, but the service is still not kept.
        EXPECT_EQ(client.registerServices({kLate}).code, kNotKept);
        const Services listed = client.list();
        EXPECT_THAT(listed, Contains(kLate));
        EXPECT_THAT(listed, Contains(kLater));
        EXPECT_THAT(listed, Not(Contains(kWithdrawn)));
    }

    static Services withoutWithdrawn(Services services) {
        services.erase(std::remove(services.begin(), services.end(), kWithdrawn), services.end());
        return services;
    }
};

TEST_P(FullDiskUnderHost, KilledHostLosesNothingThatItAcknowledged) {
    run([](HostProcess& host, SmallDisk& disk) {
        ASSERT_TRUE(host.start());
        Services kept;
        {
            const DirectoryClient client(host);
            ASSERT_EQ(client.registerServices(kKept).code, kDone);
            kept = withoutWithdrawn(fill(client, disk));
            changeInVain(client);
        }
        ASSERT_TRUE(killAndStart(host)) << host.errors();
        const Services listed = DirectoryClient(host).list();
        // A failure must not print the services.
        EXPECT_TRUE(std::includes(listed.begin(), listed.end(), kept.begin(), kept.end()))
            << listed.size() << " services are left of " << kept.size();
        disk.makeRoom();
        const DirectoryClient client(host);
        ASSERT_TRUE(client.registerUntilKept({kLate}));
        EXPECT_EQ(client.sync().code, kDone);
        const Services last = client.list();
        ASSERT_TRUE(killAndStart(host)) << host.errors();
        EXPECT_TRUE(DirectoryClient(host).list() == last);
        EXPECT_TRUE(servicesIn(configurationOf(host)) == last);
    });
}

TEST_P(FullDiskUnderHost, EverythingIsKeptWhenThereIsRoom) {
    run([](HostProcess& host, SmallDisk& disk) {
        ASSERT_TRUE(host.start());
        const DirectoryClient client(host);
        ASSERT_EQ(client.registerServices(kKept).code, kDone);
        fill(client, disk);
        changeInVain(client);
        const Services changed = client.list();
        disk.makeRoom();
        EXPECT_TRUE(client.registerUntilKept({kLater}));
        // The other changes need no repetition.
        EXPECT_EQ(client.withdraw({kWithdrawn.first}).code, kDone);
        EXPECT_EQ(client.registerServices({kLate}).code, kDone);
        EXPECT_TRUE(client.list() == changed);
        ASSERT_TRUE(killAndStart(host)) << host.errors();
        EXPECT_TRUE(DirectoryClient(host).list() == changed);
    });
}

TEST_P(FullDiskUnderHost, FileFollowsWhenThereIsRoom) {
    run([](HostProcess& host, SmallDisk& disk) {
        ASSERT_TRUE(host.start());
        const DirectoryClient client(host);
        ASSERT_EQ(client.registerServices(kKept).code, kDone);
        EXPECT_EQ(client.sync().code, kDone);
        fill(client, disk);
        const RawAnswer answer = client.sync();
        EXPECT_EQ(answer.code, uint32_t{QV_HOST_ERROR_FILE});
        EXPECT_NE(answer.bytes, "");
        disk.makeRoom();
        EXPECT_TRUE(client.registerUntilKept({kLate}));
        EXPECT_EQ(client.sync().code, kDone);
        EXPECT_TRUE(servicesIn(configurationOf(host)) == client.list());
        EXPECT_EQ(stop(host), 0);
    });
}

INSTANTIATE_TEST_SUITE_P(Each, FullDiskUnderHost,
                         testing::Values(Shortage::OfSpace, Shortage::OfFileSize),
                         [](const testing::TestParamInfo<Shortage>& info) {
                             return info.param == Shortage::OfSpace ? "Space" : "FileSize";
                         });

}  // namespace
}  // namespace qv::host
