// SPDX-License-Identifier: Apache-2.0

#include <QvClient.h>
#include <gtest/gtest.h>

#include <optional>

#include "support/EnvironmentVariable.h"

namespace qv::client {
namespace {

using tests::EnvironmentVariable;

TEST(DefaultSocketPath, IsInTheDirectoryOfTheEnvironment) {
    const EnvironmentVariable directory("QV_RUN_DIR", "/some where");
    EXPECT_EQ(defaultSocketPath(), "/some where/namingService.sock");
}

TEST(DefaultSocketPath, IsInTheDirectoryOfTheBuildWithoutTheVariable) {
    for (const std::optional<std::string>& value : {std::optional<std::string>(), {""}}) {
        const EnvironmentVariable directory("QV_RUN_DIR", value);
        EXPECT_EQ(defaultSocketPath(), QV_EXPECTED_RUN_DIR "/namingService.sock");
    }
}

}  // namespace
}  // namespace qv::client
