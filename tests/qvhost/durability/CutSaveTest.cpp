// SPDX-License-Identifier: Apache-2.0

// Kills the host while the plug-in saves, and puts files in place that such a save may leave. The
// record counts, because it was ahead of the file or the file was being written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"
#include "qvhost/durability/HostTracer.h"
#include "support/ConfigurationDocuments.h"
#include "support/Files.h"

namespace qv::host {
namespace {

using testing::IsEmpty;
using testing::Not;
using tests::Services;

const Services kOld = {{1, "unix:/run/1.sock"}, {2, "unix:/run/2.sock"}};
const Services kNew = {
    {-1, "unix:/run/new.sock"}, {1, "unix:/run/1.sock"}, {2, "unix:/run/2.sock"}};
// Each service has its neighbour's address.
const Services kMixture = {{-1, "unix:/run/new.sock"}, {1, "unix:/run/2.sock"}};

class CutSave : public testing::Test {
  protected:
    // Registers a service in front of the others, and kills the host when it saves the directory.
    void serveUntilTheSave(const Strike& strike) {
        ASSERT_TRUE(host_.start());
        {
            const DirectoryClient client(host_);
            ASSERT_EQ(client.registerServices(kOld).code, kDone);
            EXPECT_EQ(client.sync().code, kDone);
        }
        EXPECT_EQ(stop(host_), 0);
        HostTracer tracer(host_);
        ASSERT_TRUE(host_.start());
        tracer.set(strike);
        ASSERT_EQ(DirectoryClient(host_).registerServices({kNew[0]}).code, kDone);
        host_.wait();
        EXPECT_NE(tracer.ended().struck, "");
    }

    void expectNewServices() {
        ASSERT_TRUE(host_.start()) << host_.errors();
        EXPECT_EQ(DirectoryClient(host_).list(), kNew);
        EXPECT_EQ(servicesIn(configurationOf(host_)), kNew);
    }

    HostProcess host_;
};

TEST_F(CutSave, WithinTheFileLosesNothing) {
    serveUntilTheSave(Strike::killWithin(HostFile::Configuration));
    expectNewServices();
}

TEST_F(CutSave, BeforeItChangesTheFileLosesNothing) {
    serveUntilTheSave(Strike::killBefore(HostFile::Configuration));
    expectNewServices();
}

TEST_F(CutSave, ThatLeavesAMixtureLosesNothing) {
    serveUntilTheSave(Strike::killWithin(HostFile::Configuration));
    const std::string mixture = tests::documentOf(kMixture);
    tests::writeFile(configurationOf(host_), mixture);
    expectNewServices();
    EXPECT_THAT(copiesSetAside(host_, mixture), Not(IsEmpty()));
}

TEST_F(CutSave, ThatLeavesTheOldFileIsNoEdit) {
    serveUntilTheSave(Strike::killWithin(HostFile::Configuration));
    tests::writeFile(configurationOf(host_), tests::documentOf(kOld));
    expectNewServices();
}

// The record is ahead of the file. Somebody who edited the file did not know the newest services.
TEST_F(CutSave, ThatHasNotBegunIsAheadOfAnEdit) {
    {
        HostTracer tracer(host_);
        ASSERT_TRUE(host_.start());
        const DirectoryClient client(host_);
        ASSERT_EQ(client.registerServices(kOld).code, kDone);
        EXPECT_EQ(client.sync().code, kDone);
        ASSERT_EQ(client.registerServices({kNew[0]}).code, kDone);
        // The record is written next when the plug-in begins to save.
        tracer.set(Strike::killBefore(HostFile::Record));
        host_.wait();
        EXPECT_NE(tracer.ended().struck, "");
    }
    const std::string edited = tests::documentOf({{1, "unix:/run/edited.sock"}});
    tests::writeFile(configurationOf(host_), edited);
    expectNewServices();
    EXPECT_THAT(copiesSetAside(host_, edited), Not(IsEmpty()));
}

// The next start may be cut as well.
TEST_F(CutSave, OfARepairLosesNothing) {
    serveUntilTheSave(Strike::killWithin(HostFile::Configuration));
    for (int write = 0;; ++write) {
        SCOPED_TRACE("write " + std::to_string(write));
        tests::writeFile(configurationOf(host_), "damage");
        HostTracer tracer(host_, Strike::killWithin(write));
        const bool isServing = host_.start();
        if (isServing) {
            EXPECT_EQ(DirectoryClient(host_).list(), kNew);
            host_.signal(SIGKILL);
        }
        host_.wait();
        if (isServing && tracer.ended().struck.empty()) {
            EXPECT_GT(write, 0);
            break;
        }
        ASSERT_LT(write, 1000);
        ASSERT_FALSE(HasFailure());
    }
    expectNewServices();
}

}  // namespace
}  // namespace qv::host
