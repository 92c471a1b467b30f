// SPDX-License-Identifier: Apache-2.0

// Loads, uses and unloads the plug-in many times.

#include <gtest/gtest.h>
#include <malloc.h>

#include <filesystem>

#include "support/LoadedPlugin.h"

namespace qv::tests {
namespace {

int openDescriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

void loadUseAndUnload() {
    const InitializedPlugin plugin;
    plugin.registerServices({{1, "unix:/var/run/a-service-with-a-long-name.sock"}, {2, ""}});
    plugin.execute(QV_COMMAND_REGISTER_SERVICES, "\x0a\x09\x08\x07\x12\x05s");
    plugin.execute(QV_COMMAND_SET_DEBUG_LEVEL, "\x08\x01\x10\x07");
    plugin.getServices();
    plugin.unregisterServices({1});
}

TEST(Reload, AThousandTimesLeavesNoMemoryAndNoDescriptor) {
    constexpr int kRounds = 1000;
    // The C library's smallest allocation. A leak in each round adds at least this much per round.
    constexpr std::size_t kSmallestAllocation = 32;
    // The first rounds fill the caches of the C library and of the dynamic linker.
    for (int round = 0; round < kRounds; ++round) {
        loadUseAndUnload();
    }
    const int descriptors = openDescriptors();
    const std::size_t memory = mallinfo2().uordblks;
    for (int round = 0; round < kRounds; ++round) {
        loadUseAndUnload();
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_LT(mallinfo2().uordblks, memory + kRounds * kSmallestAllocation / 2);
}

}  // namespace
}  // namespace qv::tests
