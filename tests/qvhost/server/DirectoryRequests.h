// SPDX-License-Identifier: Apache-2.0

// Requests that tests send a running host.
#ifndef QVHOST_DIRECTORY_REQUESTS_H
#define QVHOST_DIRECTORY_REQUESTS_H

#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "QvHost.pb.h"
#include "qvhost/RawClient.h"
#include "support/LoadedPlugin.h"

namespace qv::host {

// The input of a set-debug-level command, a serialised DebugOption: plug-in 2, level 3.
inline const std::string kLevelInput = "\x08\x02\x10\x03";

inline tests::Services listed(const RawClient& client) {
    const std::optional<RawAnswer> answer = client.ask(QV_COMMAND_GET_SERVICES, 1);
    return answer && answer->code == QV_OK ? tests::decode(answer->bytes)
                                           : tests::Services{{-1, "none"}};
}

inline void expectDone(const RawClient& client, uint32_t command, const std::string& bytes = "") {
    const std::optional<RawAnswer> answer = client.ask(command, 2, bytes);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_OK}) << answer->bytes;
}

inline void registerServices(const RawClient& client, const tests::Services& services) {
    expectDone(client, QV_COMMAND_REGISTER_SERVICES, tests::encode(services));
}

inline void withdraw(const RawClient& client, int32_t id) {
    expectDone(client, QV_COMMAND_UNREGISTER_SERVICES, tests::encode({{id, ""}}));
}

// Waits until the plug-in's file holds the directory.
inline void sync(const RawClient& client) {
    expectDone(client, QV_HOST_COMMAND_SYNC);
}

inline wire::HostStatus statusOf(const RawClient& client) {
    const std::optional<RawAnswer> answer = client.ask(QV_HOST_COMMAND_STATUS, 3);
    wire::HostStatus status;
    EXPECT_TRUE(answer && answer->code == QV_OK && status.ParseFromString(answer->bytes));
    return status;
}

// Returns services whose listing is longer than a socket holds.
inline tests::Services manyServices() {
    constexpr int32_t kCount = 2000;
    tests::Services services;
    for (int32_t id = 0; id < kCount; ++id) {
        services.emplace_back(id, std::string(4000, 'a'));
    }
    return services;
}

// Changes and lists the directory, and makes the other requests that need no plug-in.
inline void expectService(const RawClient& client, int32_t id) {
    EXPECT_TRUE(client.works());
    registerServices(client, {{id, "a"}, {id + 1, "b"}});
    withdraw(client, id);
    const tests::Services services = listed(client);
    EXPECT_THAT(services, testing::Contains(tests::Service(id + 1, "b")));
    EXPECT_THAT(services, testing::Not(testing::Contains(tests::Service(id, "a"))));
    EXPECT_EQ(statusOf(client).services(), services.size());
}

}  // namespace qv::host

#endif  // QVHOST_DIRECTORY_REQUESTS_H
