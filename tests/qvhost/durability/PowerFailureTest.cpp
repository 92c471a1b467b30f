// SPDX-License-Identifier: Apache-2.0

// Cuts the power of the machine on which a host serves, as far as a test can: the host is killed,
// and of what it has not flushed some blocks are new and others old. The next host has every
// acknowledged change.
//
// The system may write blocks in any order, so every mixture is possible. The names of files are
// taken to be on the disk.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <random>
#include <string>
#include <thread>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"
#include "qvhost/durability/HostTracer.h"
#include "qvhost/durability/Writer.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {
namespace {

constexpr std::size_t kBlock = 4096;

class PowerFailure : public testing::Test {
  protected:
    // Replaces each block of the file by the flushed one, or leaves it.
    void loseBlocks(const std::string& path, const std::string& flushed) {
        std::string bytes = tests::contentOf(path).value_or("");
        // A file's length is flushed with it.
        const std::size_t length = random_() % 2 == 0 ? bytes.size() : flushed.size();
        bytes.resize(length);
        for (std::size_t at = 0; at < length; at += kBlock) {
            if (random_() % 2 == 0) {
                std::string block = at < flushed.size() ? flushed.substr(at, kBlock) : "";
                block.resize(std::min(kBlock, length - at));
                bytes.replace(at, block.size(), block);
            }
        }
        tests::writeFile(path, bytes);
    }

    void cutThePower(const HostProcess& host, const tests::TemporaryDirectory& images) {
        for (const std::string& path : filesBelow(directoryOf(host))) {
            const std::string image = images.path(std::to_string(tests::inodeOf(path)));
            const std::string current = tests::contentOf(path).value_or("");
            const std::string flushed = tests::contentOf(image).value_or("");
            if (current != flushed) {
                loseBlocks(path, flushed);
            }
        }
    }

    std::mt19937 random_{4711};
};

TEST_F(PowerFailure, LosesNoAcknowledgedChange) {
    constexpr int kFailures = 12;
    constexpr int32_t kServices = 400;
    const tests::TemporaryDirectory images;
    HostProcess host;
    Writer writer(1, kServices, 7);
    for (int failure = 0; failure < kFailures; ++failure) {
        SCOPED_TRACE("failure " + std::to_string(failure));
        {
            HostTracer tracer(host, {}, images.path());
            ASSERT_TRUE(host.start()) << host.errors();
            const DirectoryClient client(host);
            const tests::Services listed = client.list();
            ASSERT_TRUE(writer.explains({listed.begin(), listed.end()}));
            std::atomic<int> answers = 0;
            std::thread thread([&] { writer.run(host.socket(), answers); });
            const int enough = 1 + static_cast<int>(random_() % 200);
            while (answers < enough) {
                // The answer to a listing shows that the host still serves.
                static_cast<void>(client.list());
            }
            // Two of three failures meet the file while it follows.
            if (failure % 3 != 0) {
                static_cast<void>(client.sync());
            }
            host.signal(SIGKILL);
            thread.join();
            host.wait();
            ASSERT_EQ(tracer.ended().struck, "");
        }
        ASSERT_EQ(writer.complaint(), "");
        cutThePower(host, images);
    }
    ASSERT_TRUE(host.start()) << host.errors();
    const tests::Services listed = DirectoryClient(host).list();
    EXPECT_TRUE(writer.explains({listed.begin(), listed.end()}));
    EXPECT_EQ(DirectoryClient(host).sync().code, kDone);
    EXPECT_TRUE(servicesIn(configurationOf(host)) == listed);
}

}  // namespace
}  // namespace qv::host
