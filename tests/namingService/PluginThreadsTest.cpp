// Handlers on several threads at once. Meaningful above all under ThreadSanitizer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/LoadedPlugin.h"

namespace qv::tests {
namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 1000;

TEST(Threads, EachThreadsServicesComeAndGoUndisturbed) {
    const InitializedPlugin plugin;
    std::atomic<int> wrong{0};

    const auto work = [&](int thread) {
        // Each thread has identifiers of its own, and the last of them stays.
        const int base = thread * kRounds;
        for (int round = 0; round < kRounds; ++round) {
            const int id = base + round;
            const std::string address = "thread-" + std::to_string(thread);
            wrong += plugin.registerServices({{id, address}}) != 0;
            wrong += plugin
                         .execute(QV_COMMAND_SET_DEBUG_LEVEL,
                                  std::string("\x08\x02\x10") + static_cast<char>(round % 8))
                         .result != 0;
            int own = 0;
            for (const auto& [listedId, listedAddress] : plugin.getServices()) {
                own += listedAddress == address && listedId == id;
            }
            wrong += own != 1;
            if (round + 1 < kRounds) {
                wrong += plugin.unregisterServices({id}) != 0;
            }
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back(work, thread);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrong, 0);
    Services expected;
    for (int thread = 0; thread < kThreads; ++thread) {
        expected.emplace_back((thread + 1) * kRounds - 1, "thread-" + std::to_string(thread));
    }
    EXPECT_EQ(plugin.getServices(), expected);
}

}  // namespace
}  // namespace qv::tests
