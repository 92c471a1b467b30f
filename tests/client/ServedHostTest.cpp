// SPDX-License-Identifier: Apache-2.0

// Tests the client library and the example in C with a running host.
#include <QvClient.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qvhost/HostProcess.h"

namespace qv::client {
namespace {

using host::HostProcess;
using Pairs = std::vector<std::pair<int32_t, std::string>>;

Pairs servicesOf(Client& client) {
    Pairs pairs;
    for (const Service& service : client.services()) {
        pairs.emplace_back(service.id, service.address);
    }
    return pairs;
}

class ServedHost : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(host_.start()) << host_.errors(); }

    HostProcess host_;
};

TEST_F(ServedHost, DoesWhatItsClientsAsk) {
    Client client(host_.socket());
    client.ping();
    EXPECT_EQ(servicesOf(client), Pairs{});
    client.registerServices({{2, "b"}, {-1, "\xc3\xa9"}, {1, "a"}});
    EXPECT_EQ(servicesOf(client), (Pairs{{-1, "\xc3\xa9"}, {1, "a"}, {2, "b"}}));
    Client(host_.socket()).unregisterServices({1, 7});
    EXPECT_EQ(servicesOf(client), (Pairs{{-1, "\xc3\xa9"}, {2, "b"}}));
    client.setDebugLevel(0);
    try {
        client.setDebugLevel(8);
        FAIL() << "set";
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), Error::Kind::Result);
        EXPECT_EQ(error.code(), 20002);
    }
    EXPECT_EQ(servicesOf(client), (Pairs{{-1, "\xc3\xa9"}, {2, "b"}}));
}

TEST_F(ServedHost, MayBeStartedAgainBetweenRequests) {
    Client client(host_.socket());
    client.registerServices({{1, "a"}});
    host_.signal(SIGTERM);
    EXPECT_EQ(host_.wait(), 0);
    EXPECT_THROW(client.services(), Error);
    ASSERT_TRUE(host_.start());
    EXPECT_EQ(servicesOf(client), (Pairs{{1, "a"}}));
    host_.signal(SIGKILL);
    host_.wait();
    ASSERT_TRUE(host_.start());
    EXPECT_EQ(servicesOf(client), (Pairs{{1, "a"}}));
}

TEST_F(ServedHost, ServesManyClientsAtOnce) {
    constexpr int kClients = 8;
    constexpr int kRounds = 20;
    std::vector<std::thread> threads;
    threads.reserve(kClients);
    for (int32_t id = 0; id < kClients; ++id) {
        threads.emplace_back([this, id] {
            Client client(host_.socket());
            for (int round = 0; round < kRounds; ++round) {
                const std::string address = std::to_string(round);
                client.registerServices({{id, address}});
                bool isThere = false;
                for (const auto& service : servicesOf(client)) {
                    isThere = isThere || (service.first == id && service.second == address);
                }
                EXPECT_TRUE(isThere);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    Client client(host_.socket());
    EXPECT_EQ(client.services().size(), static_cast<std::size_t>(kClients));
}

TEST(ServedHostWithASmallBound, RefusesALongRequest) {
    HostProcess narrow;
    ASSERT_TRUE(narrow.start({"--max-message", "1000"}));
    Client client(narrow.socket());
    constexpr std::size_t kFar = 1000;
    for (const std::size_t count : {std::size_t{1}, kFar}) {
        const Service service = {1, std::string(4096, 'x')};
        try {
            client.registerServices(std::vector<Service>(count, service));
            FAIL() << "registered";
        } catch (const Error& error) {
            EXPECT_EQ(error.kind(), Error::Kind::Refused) << error.what();
            EXPECT_EQ(error.code(), 21003);
        }
    }
    client.registerServices({{1, "a"}});
    EXPECT_EQ(servicesOf(client), (Pairs{{1, "a"}}));
}

// Returns what the command prints, on standard error as well, and its exit status.
std::pair<std::string, int> outputOf(const std::string& command) {
    std::FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
    std::string output;
    char part[4096];
    std::size_t count = 0;
    while (pipe != nullptr && (count = std::fread(part, 1, sizeof part, pipe)) > 0) {
        output.append(part, count);
    }
    return {output, pipe == nullptr ? -1 : ::pclose(pipe)};
}

TEST_F(ServedHost, IsUnderstoodByTheExampleInC) {
    Client client(host_.socket());
    const std::string list = std::string("'" QV_EXAMPLE_LIST "' '") + host_.socket() + "'";
    EXPECT_EQ(outputOf(list), std::make_pair(std::string(), 0));
    client.registerServices({{-2147483648, "low"}, {1, "a"}, {300, std::string(300, 'x')}});
    EXPECT_EQ(outputOf(list),
              std::make_pair("-2147483648\tlow\n1\ta\n300\t" + std::string(300, 'x') + "\n", 0));
    const auto [output, status] = outputOf("'" QV_EXAMPLE_LIST "' /none");
    EXPECT_EQ(output, "list: No such file or directory\n");
    EXPECT_NE(status, 0);
}

}  // namespace
}  // namespace qv::client
