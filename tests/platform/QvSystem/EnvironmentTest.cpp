// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/Environment.h"

#include <gtest/gtest.h>

#include <optional>

#include "support/EnvironmentVariable.h"

namespace qv::system {
namespace {

constexpr char kName[] = "QV_SYSTEM_TEST";

TEST(EnvironmentValue, IsTheVariablesValue) {
    const tests::EnvironmentVariable variable(kName, "a b");
    EXPECT_STREQ(environmentValue(kName), "a b");
}

TEST(EnvironmentValue, IsNullForAnUnsetOrEmptyVariable) {
    const tests::EnvironmentVariable unset(kName, std::nullopt);
    EXPECT_EQ(environmentValue(kName), nullptr);
    const tests::EnvironmentVariable empty(kName, "");
    EXPECT_EQ(environmentValue(kName), nullptr);
}

}  // namespace
}  // namespace qv::system
