// SPDX-License-Identifier: Apache-2.0

// Tests the built plug-in as a host uses it: through its exported functions and its command table.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "gen_lite/LargeInput.h"
#include "support/LoadedPlugin.h"
#include "support/UsualOrReduced.h"

namespace qv::tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(PluginId, IsTwo) {
    const LoadedPlugin plugin;
    EXPECT_EQ(plugin.getId(), 2);
}

TEST(CommandTable, HasTheFourRowsInOrder) {
    const LoadedPlugin plugin;
    const HandlerEntry* rows = nullptr;
    std::int32_t count = 0;
    void* reserved = &count;
    EXPECT_EQ(plugin.getHandlers(&rows, &count, &reserved), 0);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(reserved, nullptr);

    const std::uint32_t commands[] = {0x0200, 0x0201, 0x0202, 0x0102};
    const char* const names[] = {"register services", "unregister services", "get services",
                                 "set debug level"};
    for (int row = 0; row < 4; ++row) {
        EXPECT_EQ(rows[row].command, commands[row]);
        std::string padded(names[row]);
        padded.resize(36);
        EXPECT_EQ(std::string(rows[row].name, 36), padded);
        EXPECT_NE(rows[row].handler, nullptr);
    }
}

TEST(CommandTable, IsTheSameAtEveryCall) {
    const LoadedPlugin plugin;
    const HandlerEntry* first = nullptr;
    const HandlerEntry* second = nullptr;
    std::int32_t count = 0;
    void* reserved = nullptr;
    plugin.getHandlers(&first, &count, &reserved);
    plugin.initialize();
    plugin.getHandlers(&second, &count, &reserved);
    plugin.finalize();
    EXPECT_EQ(first, second);
}

TEST(Free, ReleasesMemoryFromMalloc) {
    const LoadedPlugin plugin;
    EXPECT_EQ(plugin.free(std::malloc(10)), 0);
}

TEST(NotificationCallback, IsNeverCalled) {
    const InitializedPlugin plugin;
    plugin.setNotificationCallback([] { FAIL() << "the plug-in called it"; });
    plugin.registerServices({{1, "a"}});
    plugin.getServices();
    plugin.setNotificationCallback(nullptr);
    plugin.registerServices({{2, "b"}});
}

TEST(RegisterServices, ServicesAreListedInAscendingOrderOfSignedIdentifiers) {
    const InitializedPlugin plugin;
    EXPECT_EQ(plugin.registerServices(
                  {{1, "a"}, {-1, "b"}, {INT32_MAX, "c"}, {INT32_MIN, "d"}, {0, "e"}}),
              0);
    EXPECT_THAT(plugin.getServices(),
                ElementsAre(Service(INT32_MIN, "d"), Service(-1, "b"), Service(0, "e"),
                            Service(1, "a"), Service(INT32_MAX, "c")));
}

TEST(RegisterServices, LaterDuplicateWins) {
    const InitializedPlugin plugin;
    plugin.registerServices({{7, "x"}, {7, "y"}});
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(7, "y")));
}

TEST(RegisterServices, EntryWithoutIdentifierIsZero) {
    const InitializedPlugin plugin;
    EXPECT_EQ(plugin.execute(0x0200, "\x0a\x03\x12\x01z").result, 0);
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(0, "z")));
    EXPECT_EQ(plugin.execute(0x0201, std::string("\x0a\x00", 2)).result, 0);
    EXPECT_THAT(plugin.getServices(), IsEmpty());
}

TEST(RegisterServices, NullInputOrNegativeLengthIsRefused) {
    const InitializedPlugin plugin;
    const std::string request = encode({{1, "a"}});
    for (const std::uint32_t command : {0x0200, 0x0201}) {
        const CommandHandler handler = plugin.handler(command);
        EXPECT_EQ(handler(0, nullptr, 0, nullptr, nullptr), 20002);
        EXPECT_EQ(handler(0, nullptr, 5, nullptr, nullptr), 20002);
        EXPECT_EQ(handler(0, request.data(), -1, nullptr, nullptr), 20002);
        EXPECT_EQ(handler(0, request.data(), INT32_MIN, nullptr, nullptr), 20002);
    }
    EXPECT_THAT(plugin.getServices(), IsEmpty());
}

TEST(RegisterServices, EntriesDecodedBeforeAFaultAreRegistered) {
    const InitializedPlugin plugin;
    EXPECT_EQ(plugin.execute(0x0200, encode({{1, "a"}}) + "\xff\xff\xff").result, 0);
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(1, "a")));
}

TEST(GetServices, InputIsIgnored) {
    const InitializedPlugin plugin;
    plugin.registerServices({{1, "a"}});
    int length = 0;
    void* answer = nullptr;
    // The input pointer is invalid, so a read through it would crash.
    EXPECT_EQ(plugin.handler(0x0202)(-1, reinterpret_cast<void*>(1), -5, &answer, &length), 0);
    EXPECT_EQ(decode(std::string(static_cast<char*>(answer), static_cast<std::size_t>(length))),
              (Services{{1, "a"}}));
    plugin.free(answer);
}

TEST(SetDebugLevel, RefusesAboveSevenAndBelowZero) {
    const InitializedPlugin plugin;
    EXPECT_EQ(plugin.execute(0x0102, "\x08\x01\x10\x08").result, 20002);
    EXPECT_EQ(plugin.execute(0x0102, "\x08\x01\x10\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01").result,
              20002);
}

TEST(Directory, HoldsAMillionServices) {
    constexpr int kCount = usualOrReduced(1'000'000, 100'000);
    const InitializedPlugin plugin;
    Services all;
    std::vector<std::int32_t> ids;
    for (int id = 0; id < kCount; ++id) {
        all.emplace_back(id, "unix:/var/run/service-" + std::to_string(id) + ".sock");
        ids.push_back(id);
    }
    ASSERT_EQ(plugin.registerServices(all), 0);
    EXPECT_TRUE(plugin.getServices() == all);
    ASSERT_EQ(plugin.unregisterServices(ids), 0);
    EXPECT_THAT(plugin.getServices(), IsEmpty());
}

}  // namespace
}  // namespace qv::tests
