// SPDX-License-Identifier: Apache-2.0

// Makes requests with numbers, so that a test can send several at once and check each answer.
#ifndef QVHOST_NUMBERED_REQUESTS_H
#define QVHOST_NUMBERED_REQUESTS_H

#include <QvFrame.h>
#include <QvPlugin.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "qvhost/RawClient.h"
#include "support/LoadedPlugin.h"

namespace qv::host {

inline std::string registration(uint32_t number, const tests::Services& services) {
    return frame(QV_COMMAND_REGISTER_SERVICES, number, tests::encode(services));
}

// Withdraws one service.
inline std::string withdrawal(uint32_t number, int32_t id) {
    // A ServiceInfoArray names the services to withdraw as one to register does.
    return frame(QV_COMMAND_UNREGISTER_SERVICES, number, tests::encode({{id, ""}}));
}

inline std::string listing(uint32_t number) {
    return frame(QV_COMMAND_GET_SERVICES, number);
}

inline std::string ping(uint32_t number) {
    return frame(QV_HOST_COMMAND_PING, number);
}

// Returns the next answer, which must be to this request.
inline RawAnswer next(const RawClient& client, uint32_t number, uint32_t code = QV_OK) {
    std::optional<RawAnswer> answer = client.receive();
    if (!answer) {
        ADD_FAILURE() << "no answer to request " << number;
        return {};
    }
    EXPECT_EQ(answer->number, number);
    EXPECT_EQ(answer->code, code) << answer->bytes;
    return *answer;
}

inline tests::Services listedInTurn(const RawClient& client) {
    EXPECT_TRUE(client.send(listing(4711)));
    return tests::decode(next(client, 4711).bytes);
}

}  // namespace qv::host

#endif  // QVHOST_NUMBERED_REQUESTS_H
