// SPDX-License-Identifier: Apache-2.0

// Sends changes that the configuration file cannot hold, or that clients may not make. The host
// refuses each as a whole, and goes on to keep the changes of others.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"
#include "support/OtherUser.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {
namespace {

using testing::HasSubstr;
using tests::Services;

constexpr std::size_t kLongestAddress = 4096;

class RefusedChanges : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(host_.start()); }

    void expectKept(const Services& services) {
        const DirectoryClient client(host_);
        EXPECT_EQ(client.sync().code, kDone);
        EXPECT_EQ(servicesIn(configurationOf(host_)), services);
        ASSERT_TRUE(killAndStart(host_)) << host_.errors();
        EXPECT_EQ(DirectoryClient(host_).list(), services);
    }

    HostProcess host_;
};

TEST_F(RefusedChanges, AddressThatTheFileCannotHoldIsRefusedByName) {
    const std::vector<std::pair<const char*, std::string>> bad = {
        {"not UTF-8", "\xff"},
        {"not UTF-8 at the end", "unix:/run/a\xc3"},
        {"a surrogate", "\xed\xa0\x80"},
        {"a zero byte", std::string("unix:/run/a\0b", 13)},
        {"a byte order mark", "\xef\xbb\xbfunix:/run/a"},
        {"nothing", ""},
        {"too long", std::string(kLongestAddress + 1, 'a')},
    };
    const DirectoryClient client(host_);
    ASSERT_EQ(client.registerServices({{1, "unix:/run/1.sock"}}).code, kDone);
    for (const auto& [what, address] : bad) {
        SCOPED_TRACE(what);
        const RawAnswer answer = client.registerServices({{4711, address}});
        EXPECT_EQ(answer.code, kRefused);
        EXPECT_THAT(answer.bytes, HasSubstr("4711"));
        // A bad address of a known service leaves the good one.
        EXPECT_EQ(client.registerServices({{1, address}}).code, kRefused);
        // Nothing of the request counts.
        EXPECT_EQ(client.registerServices({{2, "unix:/run/2.sock"}, {4711, address}}).code,
                  kRefused);
        EXPECT_EQ(client.list(), (Services{{1, "unix:/run/1.sock"}}));
    }
    EXPECT_EQ(DirectoryClient(host_).registerServices({{3, "unix:/run/3.sock"}}).code, kDone);
    expectKept({{1, "unix:/run/1.sock"}, {3, "unix:/run/3.sock"}});
}

TEST_F(RefusedChanges, AddressesAtTheBoundsAreKept) {
    const Services services = {{-2147483647 - 1, "a"},
                               {0, "<&>\"' \t\n"},
                               {1, "a\xef\xbb\xbf"},
                               {2, "\xf4\x8f\xbf\xbd"},
                               {2147483647, std::string(kLongestAddress, 'z')}};
    ASSERT_EQ(DirectoryClient(host_).registerServices(services).code, kDone);
    expectKept(services);
}

TEST_F(RefusedChanges, RequestThatIsNoMessageChangesNothing) {
    const DirectoryClient client(host_);
    const Services services = {{1, "unix:/run/1.sock"}};
    ASSERT_EQ(client.registerServices(services).code, kDone);
    const std::string half = tests::encode({{2, "unix:/run/2.sock"}}) + "\x0a\x7f";
    EXPECT_EQ(client.ask(QV_COMMAND_REGISTER_SERVICES, half).code, uint32_t{QV_ERROR_ARGUMENT});
    const std::string halfWithdrawal = tests::encode({{1, ""}}) + "\x0a\x7f";
    EXPECT_EQ(client.ask(QV_COMMAND_UNREGISTER_SERVICES, halfWithdrawal).code,
              uint32_t{QV_ERROR_ARGUMENT});
    EXPECT_EQ(client.list(), services);
    expectKept(services);
}

TEST_F(RefusedChanges, DirectoryHoldsAHundredThousandServices) {
    constexpr int32_t kMost = 100'000;
    const DirectoryClient client(host_);
    const Services all = manyServices(1, kMost);
    ASSERT_EQ(client.registerServices(all).code, kDone);
    const RawAnswer answer = client.registerServices({{kMost + 1, "unix:/run/more.sock"}});
    EXPECT_EQ(answer.code, kRefused);
    EXPECT_THAT(answer.bytes, HasSubstr("100001"));
    EXPECT_EQ(client.registerServices({{kMost, "unix:/run/other.sock"}}).code, kDone);
    EXPECT_EQ(client.withdraw({1}).code, kDone);
    EXPECT_EQ(client.registerServices({{kMost + 1, "unix:/run/more.sock"}}).code, kDone);
    EXPECT_EQ(client.list().size(), all.size());
}

TEST_F(RefusedChanges, DirectoryHoldsSixteenMebibytesOfAddresses) {
    constexpr int32_t kMost = 4096;
    const DirectoryClient client(host_);
    const std::string longest(kLongestAddress, 'a');
    for (int32_t first = 0; first < kMost; first += kMost / 4) {
        Services services;
        for (int32_t id = first; id < first + kMost / 4; ++id) {
            services.emplace_back(id, longest);
        }
        ASSERT_EQ(client.registerServices(services).code, kDone);
    }
    EXPECT_EQ(client.registerServices({{kMost, "a"}}).code, kRefused);
    EXPECT_EQ(client.registerServices({{0, "a"}, {kMost, "a"}}).code, kDone);
}

// Only the host's owner and root may set the level of the log, which all users share.
TEST(RefusedCommands, AnotherUserMaySetNoLevel) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    HostProcess host;
    ASSERT_EQ(::chmod(host.files().path("").c_str(), 0755), 0);
    ASSERT_TRUE(host.start({"--allow-user", "65534"}));
    const std::string level("\x08\x01\x10\x03", 4);
    EXPECT_EQ(DirectoryClient(host).ask(QV_COMMAND_SET_DEBUG_LEVEL, level).code, kDone);
    const tests::TemporaryDirectory elsewhere;
    tests::asOrdinaryUser(elsewhere.path(), [&] {
        const DirectoryClient client(host);
        const RawAnswer answer = client.ask(QV_COMMAND_SET_DEBUG_LEVEL, level);
        EXPECT_EQ(answer.code, uint32_t{QV_HOST_ERROR_PRIVILEGE});
        EXPECT_NE(answer.bytes, "");
        // He stays connected, and may do everything else.
        EXPECT_EQ(client.registerServices({{1, "unix:/run/1.sock"}}).code, kDone);
        EXPECT_EQ(client.status().code, kDone);
        EXPECT_EQ(client.sync().code, kDone);
    });
    EXPECT_EQ(DirectoryClient(host).ask(QV_COMMAND_SET_DEBUG_LEVEL, level).code, kDone);
}

}  // namespace
}  // namespace qv::host
