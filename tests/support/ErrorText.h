// SPDX-License-Identifier: Apache-2.0

// Tells why an attempt fails.
#ifndef QV_TESTS_SUPPORT_ERROR_TEXT_H
#define QV_TESTS_SUPPORT_ERROR_TEXT_H

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace qv::tests {

// Returns the text of the error that the attempt throws. Fails the test if the attempt succeeds.
template <typename Error = std::runtime_error, typename Attempt>
std::string errorTextOf(Attempt attempt) {
    try {
        attempt();
    } catch (const Error& error) {
        return error.what();
    }
    ADD_FAILURE() << "succeeded";
    return "";
}

}  // namespace qv::tests

#endif  // QV_TESTS_SUPPORT_ERROR_TEXT_H
