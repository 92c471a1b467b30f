#include "server/ReloadGate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace qv::host {
namespace {

TEST(ReloadGate, ClosingAnEmptyGateCallsAtOnce) {
    ReloadGate gate;
    bool emptied = false;
    gate.close([&] { emptied = true; });
    EXPECT_TRUE(emptied);
}

TEST(ReloadGate, ClosingCallsWhenTheLastRequestHasLeft) {
    ReloadGate gate;
    auto first = std::make_unique<ReloadGate::Pass>(gate);
    auto second = std::make_unique<ReloadGate::Pass>(gate);
    int emptied = 0;
    gate.close([&] { ++emptied; });
    first.reset();
    EXPECT_EQ(emptied, 0);
    second.reset();
    EXPECT_EQ(emptied, 1);
    gate.open();
    { const ReloadGate::Pass third(gate); }
    EXPECT_EQ(emptied, 1);
}

TEST(ReloadGate, NoRequestEntersWhileItIsClosed) {
    ReloadGate gate;
    gate.close([] {});
    std::atomic<bool> opened = false;
    const auto late = std::async(std::launch::async, [&] {
        const ReloadGate::Pass pass(gate);
        EXPECT_TRUE(opened);
    });
    std::this_thread::yield();
    opened = true;
    gate.open();
    late.wait();
}

// No request enters a closed gate. So the gate empties although there is always a request that
// wants to enter.
TEST(ReloadGate, ManyRequestsNeitherDelayTheReloadForEverNorOverlapIt) {
    ReloadGate gate;
    constexpr int kReloads = 200;
    std::atomic<bool> done = false;
    std::atomic<int> inside = 0;
    std::atomic<bool> reloading = false;
    constexpr std::size_t kCrowd = 4;
    std::vector<std::thread> crowd;
    crowd.reserve(kCrowd);
    for (std::size_t i = 0; i < kCrowd; ++i) {
        crowd.emplace_back([&] {
            while (!done) {
                const ReloadGate::Pass pass(gate);
                ++inside;
                EXPECT_FALSE(reloading);
                --inside;
            }
        });
    }
    for (int i = 0; i < kReloads; ++i) {
        std::promise<void> emptied;
        gate.close([&] { emptied.set_value(); });
        emptied.get_future().wait();
        reloading = true;
        EXPECT_EQ(inside, 0);
        reloading = false;
        gate.open();
    }
    done = true;
    for (std::thread& thread : crowd) {
        thread.join();
    }
}

}  // namespace
}  // namespace qv::host
