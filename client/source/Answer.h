// SPDX-License-Identifier: Apache-2.0

// Turns the answers of the host into what the library returns and throws.
#ifndef QV_CLIENT_ANSWER_H
#define QV_CLIENT_ANSWER_H

#include <cstdint>
#include <string>

#include "QvClient.h"

namespace qv::client {

struct Answer {
    uint32_t result = 0;  // a code of QvPlugin.h or QvFrame.h
    std::string bytes;
};

// Tells whether the code is one of the host's own. The bytes of such an answer are a text.
bool isHostResult(uint32_t result);

// Tells whether the host closes the connection after this answer.
bool endsTheConnection(uint32_t result);

// Returns the bytes of the answer. Throws Error for any result but QV_OK.
std::string bytesOf(Answer answer);

// Returns the error for bytes that are no answer.
Error brokenAnswer(const std::string& reason);

// Runs the action. Puts `what` in front of the text of an Error that the action throws.
template <typename Action>
auto attempt(const std::string& what, Action action) -> decltype(action()) {
    try {
        return action();
    } catch (const Error& error) {
        throw Error(error.kind(), error.code(), what + ": " + error.what());
    }
}

}  // namespace qv::client

#endif  // QV_CLIENT_ANSWER_H
