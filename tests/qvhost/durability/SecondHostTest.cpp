// SPDX-License-Identifier: Apache-2.0

// Starts a second host on the configuration of the first. It refuses to start, names the first one
// and touches nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"

namespace qv::host {
namespace {

using testing::HasSubstr;
using tests::Services;

class SecondHost : public testing::Test {
  protected:
    // Leads the second host to the first one's files by another name.
    SecondHost() {
        std::filesystem::remove_all(directoryOf(second_));
        std::filesystem::create_directory_symlink(directoryOf(first_), directoryOf(second_));
    }

    HostProcess first_;
    HostProcess second_;
};

TEST_F(SecondHost, RefusesAndNamesTheFirst) {
    ASSERT_TRUE(first_.start());
    const DirectoryClient client(first_);
    ASSERT_EQ(client.registerServices({{1, "unix:/run/1.sock"}}).code, kDone);
    EXPECT_EQ(client.sync().code, kDone);
    const auto before = traceOf(directoryOf(first_));
    ASSERT_FALSE(second_.start());
    EXPECT_EQ(second_.wait(), 1);
    EXPECT_THAT(second_.errors(), HasSubstr(std::to_string(first_.process())));
    EXPECT_THAT(second_.errors(), HasSubstr(first_.socket()));
    EXPECT_EQ(traceOf(directoryOf(first_)), before);
    EXPECT_FALSE(std::filesystem::exists(second_.socket()));
    EXPECT_FALSE(std::filesystem::exists(second_.files().path("log")));
    EXPECT_EQ(client.list(), (Services{{1, "unix:/run/1.sock"}}));
    EXPECT_EQ(client.registerServices({{2, "unix:/run/2.sock"}}).code, kDone);
}

TEST_F(SecondHost, StartsAsSoonAsTheFirstIsKilled) {
    ASSERT_TRUE(first_.start());
    ASSERT_EQ(DirectoryClient(first_).registerServices({{1, "unix:/run/1.sock"}}).code, kDone);
    first_.signal(SIGKILL);
    first_.wait();
    ASSERT_TRUE(second_.start()) << second_.errors();
    EXPECT_EQ(DirectoryClient(second_).list(), (Services{{1, "unix:/run/1.sock"}}));
    ASSERT_FALSE(first_.start());
    EXPECT_EQ(first_.wait(), 1);
    EXPECT_THAT(first_.errors(), HasSubstr(std::to_string(second_.process())));
}

}  // namespace
}  // namespace qv::host
