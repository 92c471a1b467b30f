// SPDX-License-Identifier: Apache-2.0

// Lets the disk take as long as it wants. Readers do not wait, and changes wait only for the
// record.
#include <gtest/gtest.h>

#include <optional>

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"
#include "qvhost/durability/HostTracer.h"

namespace qv::host {
namespace {

using tests::Services;

const Services kServices = manyServices(1, 3);

TEST(SlowDisk, SaveOfThePluginDelaysNobody) {
    HostProcess host;
    HostTracer tracer(host);
    ASSERT_TRUE(host.start());
    const DirectoryClient client(host);
    tracer.set(Strike::hold(HostFile::Configuration));
    ASSERT_EQ(client.registerServices(kServices).code, kDone);
    tracer.awaitHeld();
    EXPECT_EQ(client.list(), kServices);
    EXPECT_EQ(client.status().code, kDone);
    EXPECT_EQ(DirectoryClient(host).withdraw({1}).code, kDone);
    EXPECT_EQ(client.registerServices({{9, "tcp:9"}}).code, kDone);
    const Services last = {kServices[1], kServices[2], {9, "tcp:9"}};
    EXPECT_EQ(DirectoryClient(host).list(), last);
    tracer.set({});
    EXPECT_EQ(client.sync().code, kDone);
    EXPECT_EQ(servicesIn(configurationOf(host)), last);
}

TEST(SlowDisk, CommitDelaysNoReader) {
    HostProcess host;
    HostTracer tracer(host);
    ASSERT_TRUE(host.start());
    const DirectoryClient writer(host);
    const DirectoryClient reader(host);
    ASSERT_EQ(writer.registerServices(kServices).code, kDone);
    EXPECT_EQ(writer.sync().code, kDone);
    tracer.set(Strike::hold(HostFile::Record));
    ASSERT_TRUE(
        writer.raw().send(frame(QV_COMMAND_REGISTER_SERVICES, 1, tests::encode({{9, "tcp:9"}}))));
    tracer.awaitHeld();
    EXPECT_TRUE(reader.raw().works());
    // The change is not on the disk yet, so nobody sees it.
    EXPECT_EQ(reader.list(), kServices);
    EXPECT_EQ(reader.status().code, kDone);
    EXPECT_TRUE(DirectoryClient(host).raw().works());
    tracer.set({});
    const std::optional<RawAnswer> answer = writer.raw().receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, kDone);
    EXPECT_EQ(reader.list(), merged(kServices, {{9, "tcp:9"}}));
}

}  // namespace
}  // namespace qv::host
