// SPDX-License-Identifier: Apache-2.0

// Makes every call fail that changes the record, as an error of the disk does. The host goes on and
// tells that changes are not kept, until the disk works again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"
#include "qvhost/durability/HostTracer.h"

namespace qv::host {
namespace {

using testing::HasSubstr;
using tests::Services;

const Services kKept = manyServices(1, 3);
const Services kLate = {{10, "unix:/run/late.sock"}};

class DiskErrors : public testing::TestWithParam<int> {
  protected:
    HostProcess host_;
};

TEST_P(DiskErrors, OfARunningHostEndInKeepingAll) {
    const Services last = {kKept[0], kKept[2], kLate[0]};
    {
        HostTracer tracer(host_);
        ASSERT_TRUE(host_.start());
        const DirectoryClient client(host_);
        ASSERT_EQ(client.registerServices(kKept).code, kDone);
        tracer.set(Strike::failChanges(HostFile::Record, GetParam()));
        for (int i = 0; i < 2; ++i) {
            const RawAnswer answer = client.registerServices(kLate);
            EXPECT_EQ(answer.code, kNotKept);
            EXPECT_NE(answer.bytes, "");
        }
        EXPECT_EQ(client.withdraw({2}).code, kNotKept);
        EXPECT_EQ(client.list(), last);
        // Other components read the file, which goes on to follow.
        EXPECT_EQ(client.sync().code, kDone);
        EXPECT_EQ(servicesIn(configurationOf(host_)), last);
        tracer.set({});
        EXPECT_TRUE(client.registerUntilKept(kLate));
        EXPECT_EQ(client.list(), last);
        host_.signal(SIGKILL);
        host_.wait();
    }
    ASSERT_TRUE(host_.start()) << host_.errors();
    EXPECT_EQ(DirectoryClient(host_).list(), last);
}

TEST_P(DiskErrors, BeforeAKillLoseOnlyWhatWasNotKept) {
    {
        HostTracer tracer(host_);
        ASSERT_TRUE(host_.start());
        const DirectoryClient client(host_);
        ASSERT_EQ(client.registerServices(kKept).code, kDone);
        tracer.set(Strike::failChanges(HostFile::Record, GetParam()));
        EXPECT_EQ(client.registerServices(kLate).code, kNotKept);
        host_.signal(SIGKILL);
        host_.wait();
    }
    ASSERT_TRUE(host_.start()) << host_.errors();
    EXPECT_THAT(DirectoryClient(host_).list(), testing::AnyOf(kKept, merged(kKept, kLate)));
}

// The host serves what it can read, or says why it does not start.
TEST_P(DiskErrors, OfAStartLoseNothing) {
    ASSERT_TRUE(host_.start());
    ASSERT_EQ(DirectoryClient(host_).registerServices(kKept).code, kDone);
    host_.signal(SIGKILL);
    host_.wait();
    {
        const HostTracer tracer(host_, Strike::failChanges(HostFile::Record, GetParam()));
        if (host_.start()) {
            const DirectoryClient client(host_);
            EXPECT_EQ(client.list(), kKept);
            EXPECT_EQ(client.registerServices(kLate).code, kNotKept);
            EXPECT_EQ(stop(host_), 0);
        } else {
            EXPECT_EQ(host_.wait(), 1);
            EXPECT_THAT(host_.errors(), HasSubstr(recordOf(host_)));
        }
    }
    ASSERT_TRUE(host_.start()) << host_.errors();
    EXPECT_THAT(DirectoryClient(host_).list(), testing::AnyOf(kKept, merged(kKept, kLate)));
}

INSTANTIATE_TEST_SUITE_P(Each, DiskErrors, testing::Values(EIO, ENOSPC, EROFS, EDQUOT),
                         [](const testing::TestParamInfo<int>& info) {
                             return "Error" + std::to_string(info.param);
                         });

}  // namespace
}  // namespace qv::host
