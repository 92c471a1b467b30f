// SPDX-License-Identifier: Apache-2.0

// Takes the host's descriptors away. Changes are kept all the same.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <memory>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"

namespace qv::host {
namespace {

using tests::Services;

TEST(DescriptorShortage, ClientsThatTakeAllLeaveTheChangesKept) {
    HostProcess host;
    host.setPreparation([] {
        const rlimit few = {100, 100};
        ::setrlimit(RLIMIT_NOFILE, &few);
    });
    ASSERT_TRUE(host.start({"--threads", "2"}));
    const DirectoryClient client(host);
    ASSERT_EQ(client.registerServices({{1, "unix:/run/1.sock"}}).code, kDone);
    // More than the host may open. It lets the first ones in.
    std::vector<std::unique_ptr<RawClient>> crowd;
    for (int i = 0; i < 150; ++i) {
        crowd.push_back(std::make_unique<RawClient>(host.socket()));
        static_cast<void>(crowd.back()->sendSome(frame(QV_HOST_COMMAND_PING, 1)));
    }
    // The host has met the crowd when it answers its first client.
    EXPECT_TRUE(crowd.front()->receive());
    EXPECT_EQ(client.registerServices({{2, "unix:/run/2.sock"}}).code, kDone);
    EXPECT_EQ(client.withdraw({1}).code, kDone);
    const Services left = {{2, "unix:/run/2.sock"}};
    EXPECT_EQ(client.sync().code, kDone);
    EXPECT_EQ(servicesIn(configurationOf(host)), left);
    EXPECT_EQ(client.registerServices({{3, "unix:/run/3.sock"}}).code, kDone);
    const Services last = {{2, "unix:/run/2.sock"}, {3, "unix:/run/3.sock"}};
    crowd.clear();
    ASSERT_TRUE(killAndStart(host)) << host.errors();
    EXPECT_EQ(DirectoryClient(host).list(), last);
}

// No file can be opened at all. The record is open, but the plug-in's file lags.
TEST(DescriptorShortage, HostThatCanOpenNothingKeepsChanges) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    const DirectoryClient client(host);
    ASSERT_EQ(client.registerServices({{1, "unix:/run/1.sock"}}).code, kDone);
    EXPECT_EQ(client.sync().code, kDone);
    rlimit usual = {};
    ASSERT_EQ(::prlimit(host.process(), RLIMIT_NOFILE, nullptr, &usual), 0);
    const rlimit none = {0, usual.rlim_max};
    ASSERT_EQ(::prlimit(host.process(), RLIMIT_NOFILE, &none, nullptr), 0);
    EXPECT_EQ(client.registerServices({{2, "unix:/run/2.sock"}}).code, kDone);
    EXPECT_EQ(client.withdraw({1}).code, kDone);
    const Services last = {{2, "unix:/run/2.sock"}};
    EXPECT_EQ(client.list(), last);
    ASSERT_EQ(::prlimit(host.process(), RLIMIT_NOFILE, &usual, nullptr), 0);
    EXPECT_EQ(client.registerServices({{3, "unix:/run/3.sock"}}).code, kDone);
    EXPECT_EQ(client.sync().code, kDone);
    EXPECT_EQ(servicesIn(configurationOf(host)), client.list());
    ASSERT_TRUE(killAndStart(host)) << host.errors();
    EXPECT_EQ(DirectoryClient(host).list(),
              (Services{{2, "unix:/run/2.sock"}, {3, "unix:/run/3.sock"}}));
}

}  // namespace
}  // namespace qv::host
