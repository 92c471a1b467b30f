// SPDX-License-Identifier: Apache-2.0

// Wakes the clients of a thread while no memory is left.
#include <gtest/gtest.h>

#include <memory>

#include "server/ClientThreads.h"
#include "support/FailingCalls.h"

namespace qv::host {
namespace {

class Client : public Sleeper {
  public:
    int calls = 0;

  private:
    void wokenUp() noexcept override { ++calls; }
};

TEST(ClientThreadShortage, SleepersAreWokenWithoutMemory) {
    ClientThread thread;
    const auto first = std::make_shared<Client>();
    const auto second = std::make_shared<Client>();
    tests::failEveryMallocAfter(0);
    for (int round = 0; round < 3; ++round) {
        thread.wake(first);
        thread.wake(second);
        thread.hasRun();
        thread.context().poll();
    }
    EXPECT_FALSE(tests::mallocFailed());
    EXPECT_EQ(first->calls, 3);
    EXPECT_EQ(second->calls, 3);
}

}  // namespace
}  // namespace qv::host
