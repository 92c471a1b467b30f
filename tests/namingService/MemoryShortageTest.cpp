// Memory runs out at every allocation of every call in turn. The host gets a std::bad_alloc or the
// result code for it, the directory keeps each service as it was or as requested, and the next call
// works.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <functional>
#include <map>
#include <new>
#include <utility>

#include "support/FailingCalls.h"
#include "support/LoadedPlugin.h"

namespace qv::tests {
namespace {

using testing::AnyOf;
using testing::Eq;

constexpr int kThrew = -1;

// Longer than a string holds within itself.
constexpr char kOld[] = "unix:/var/run/lorx/the-address-as-it-was.sock";
constexpr char kNew[] = "unix:/var/run/lorx/the-address-as-requested.sock";

std::map<std::int32_t, std::string> directory(const LoadedPlugin& plugin) {
    std::map<std::int32_t, std::string> services;
    for (const auto& [id, address] : plugin.getServices()) {
        services[id] = address;
    }
    return services;
}

// Calls `action` with the first allocation failing, then the second, until none is left to fail;
// calls `afterFailure` with what came of each. Returns how often that was.
template <class Action, class AfterFailure>
int failEachAllocation(Action action, AfterFailure afterFailure) {
    for (int count = 0;; ++count) {
        int result = 0;
        failMallocAfter(count);
        try {
            result = action();
        } catch (const std::bad_alloc&) {
            result = kThrew;
        }
        if (!mallocFailed()) {
            EXPECT_EQ(result, QV_OK);
            return count;
        }
        afterFailure(result);
    }
}

// Executes a command without an allocation of the test's own.
class Call {
  public:
    Call(const LoadedPlugin& plugin, std::uint32_t command, std::string input)
        : plugin_(plugin), handler_(plugin.handler(command)), input_(std::move(input)) {}

    int operator()() const {
        void* answer = nullptr;
        int length = 0;
        const int result =
            handler_(0, input_.data(), static_cast<int>(input_.size()), &answer, &length);
        plugin_.free(answer);
        return result;
    }

  private:
    const LoadedPlugin& plugin_;
    CommandHandler handler_;
    std::string input_;
};

TEST(MemoryShortage, RegistrationLeavesEachServiceAsItWasOrAsRequested) {
    const InitializedPlugin plugin;
    const Services before{{1, kOld}, {2, kOld}};
    plugin.registerServices(before);
    const Call call(plugin, QV_COMMAND_REGISTER_SERVICES,
                    encode({{1, kNew}, {3, kNew}, {2, kNew}}));
    const auto afterFailure = [&](int result) {
        EXPECT_EQ(result, kThrew);
        const auto services = directory(plugin);
        EXPECT_THAT(services.at(1), AnyOf(Eq(kOld), Eq(kNew)));
        EXPECT_THAT(services.at(2), AnyOf(Eq(kOld), Eq(kNew)));
        EXPECT_TRUE(services.count(3) == 0 || services.at(3) == kNew);
        plugin.unregisterServices({3});
        plugin.registerServices(before);
    };
    EXPECT_GT(failEachAllocation(std::cref(call), afterFailure), 5);
    EXPECT_EQ(plugin.getServices(), (Services{{1, kNew}, {2, kNew}, {3, kNew}}));
}

TEST(MemoryShortage, UnregistrationRemovesAllOrNothing) {
    const InitializedPlugin plugin;
    const Services before{{1, kOld}, {2, kOld}};
    plugin.registerServices(before);
    const Call call(plugin, QV_COMMAND_UNREGISTER_SERVICES, encode({{1, ""}, {2, ""}}));
    const auto afterFailure = [&](int result) {
        EXPECT_EQ(result, kThrew);
        EXPECT_EQ(plugin.getServices(), before);
    };
    EXPECT_GT(failEachAllocation(std::cref(call), afterFailure), 1);
    EXPECT_EQ(plugin.getServices(), Services());
}

TEST(MemoryShortage, ListingChangesNothing) {
    const InitializedPlugin plugin;
    const Services services{{1, kOld}, {2, kOld}};
    plugin.registerServices(services);
    const Call call(plugin, QV_COMMAND_GET_SERVICES, "");
    const auto afterFailure = [](int result) {
        // The answer's buffer has a result code of its own.
        EXPECT_THAT(result, AnyOf(Eq(kThrew), Eq(QV_ERROR_NO_MEMORY)));
    };
    EXPECT_GT(failEachAllocation(std::cref(call), afterFailure), 4);
    EXPECT_EQ(plugin.getServices(), services);
}

TEST(MemoryShortage, NothingIsLeftBehind) {
    constexpr int kRounds = 1000;
    // What the C library hands out at the least.
    constexpr std::size_t kSmallestAllocation = 32;
    const InitializedPlugin plugin;
    const Call change(plugin, QV_COMMAND_REGISTER_SERVICES, encode({{1, kNew}, {2, kOld}}));
    const Call restore(plugin, QV_COMMAND_UNREGISTER_SERVICES, encode({{1, ""}, {2, ""}}));
    const Call list(plugin, QV_COMMAND_GET_SERVICES, "");
    const auto sweep = [&] {
        failEachAllocation(std::cref(change), [&](int) { restore(); });
        failEachAllocation(std::cref(list), [](int) {});
        restore();
        list();
    };
    sweep();
    const std::size_t memory = mallinfo2().uordblks;
    for (int round = 0; round < kRounds; ++round) {
        sweep();
    }
    EXPECT_LT(mallinfo2().uordblks, memory + kRounds * kSmallestAllocation / 2);
}

TEST(MemoryShortage, SettingTheLevelTakesNoMemory) {
    const InitializedPlugin plugin;
    const Call call(plugin, QV_COMMAND_SET_DEBUG_LEVEL, "\x08\x01\x10\x05");
    EXPECT_EQ(failEachAllocation(std::cref(call), [](int) {}), 0);
}

TEST(MemoryShortage, InitialisationMayBeTriedAgain) {
    const LoadedPlugin plugin;
    const auto initialize = [&plugin] { return plugin.initialize(); };
    const auto afterFailure = [&plugin](int result) {
        // Without a log everything works on; without a registry the host is told.
        EXPECT_THAT(result, AnyOf(Eq(QV_OK), Eq(kThrew)));
        plugin.initialize();
        EXPECT_EQ(plugin.registerServices({{1, kOld}}), QV_OK);
        EXPECT_EQ(plugin.getServices(), (Services{{1, kOld}}));
        plugin.finalize();
    };
    EXPECT_GT(failEachAllocation(initialize, afterFailure), 5);
    plugin.finalize();
}

}  // namespace
}  // namespace qv::tests
