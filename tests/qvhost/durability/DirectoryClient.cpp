// SPDX-License-Identifier: Apache-2.0

#include "qvhost/durability/DirectoryClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <map>
#include <optional>

namespace qv::host {

namespace {

constexpr uint32_t kNoAnswer = 0xffffffff;
constexpr uint32_t kNumber = 7;

std::map<int32_t, std::string> mapOf(const tests::Services& services) {
    std::map<int32_t, std::string> map;
    for (const auto& [id, address] : services) {
        map[id] = address;
    }
    return map;
}

}  // namespace

RawAnswer DirectoryClient::ask(uint32_t command, const std::string& input) const {
    std::optional<RawAnswer> answer = client_.ask(command, kNumber, input);
    if (!answer) {
        ADD_FAILURE() << "no answer to the command " << command;
        return {kNoAnswer, kNumber, ""};
    }
    EXPECT_EQ(answer->number, kNumber);
    return *answer;
}

RawAnswer DirectoryClient::registerServices(const tests::Services& services) const {
    return ask(QV_COMMAND_REGISTER_SERVICES, tests::encode(services));
}

RawAnswer DirectoryClient::withdraw(const std::vector<int32_t>& ids) const {
    tests::Services services;
    services.reserve(ids.size());
    for (const int32_t id : ids) {
        services.emplace_back(id, "");
    }
    return ask(QV_COMMAND_UNREGISTER_SERVICES, tests::encode(services));
}

tests::Services DirectoryClient::list() const {
    const RawAnswer answer = ask(QV_COMMAND_GET_SERVICES);
    EXPECT_EQ(answer.code, kDone) << answer.bytes;
    return answer.code == kDone ? tests::decode(answer.bytes) : tests::Services{{-1, "no listing"}};
}

bool DirectoryClient::registerUntilKept(const tests::Services& services) const {
    // The bound makes a test fail that waits for nothing.
    const auto never = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    RawAnswer answer = registerServices(services);
    while (answer.code == kNotKept && std::chrono::steady_clock::now() < never) {
        answer = registerServices(services);
    }
    EXPECT_EQ(answer.code, kDone) << answer.bytes;
    return answer.code == kDone;
}

tests::Services manyServices(int32_t first, int32_t count) {
    tests::Services services;
    services.reserve(static_cast<std::size_t>(count));
    for (int32_t id = first; id < first + count; ++id) {
        services.emplace_back(id, "unix:/run/services/" + std::to_string(id) + ".sock");
    }
    return services;
}

tests::Services merged(const tests::Services& services, const tests::Services& further) {
    std::map<int32_t, std::string> all = mapOf(services);
    for (const auto& [id, address] : further) {
        all[id] = address;
    }
    return {all.begin(), all.end()};
}

bool killAndStart(HostProcess& host) {
    host.signal(SIGKILL);
    host.wait();
    return host.start();
}

int stop(HostProcess& host) {
    host.signal(SIGTERM);
    return host.wait();
}

}  // namespace qv::host
