// SPDX-License-Identifier: Apache-2.0

// Tests the library file: its exported symbols, its message classes, and its unloading.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "gen_lite/AllMessages.h"
#include "support/LoadedPlugin.h"
#include "support/SharedLibrary.h"

namespace qv::tests {
namespace {

using testing::UnorderedElementsAre;

TEST(PluginLibrary, ExportsTheSixFunctionsAndNothingElse) {
    EXPECT_THAT(exportedSymbols(QV_PLUGIN_FILE),
                UnorderedElementsAre("QvPluginFinalize", "QvPluginFree", "QvPluginGetHandlers",
                                     "QvPluginGetId", "QvPluginInitialize",
                                     "QvPluginSetNotificationCallback"));
}

TEST(PluginLibrary, IsUnloadedAfterUse) {
    {
        const InitializedPlugin plugin;
        plugin.registerServices({{1, "a"}});
        plugin.getServices();
    }
    EXPECT_EQ(dlopen(QV_PLUGIN_FILE, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

// Returns the address of a symbol in the loaded library, also of one that is not exported.
char* addressOf(const LoadedPlugin& plugin, const std::string& symbol) {
    Dl_info library = {};
    if (dladdr(reinterpret_cast<void*>(plugin.getId), &library) == 0) {
        throw std::runtime_error("the plug-in is not loaded");
    }
    return static_cast<char*>(library.dli_fbase) + definedSymbols(QV_PLUGIN_FILE).at(symbol);
}

void notify() {}

TEST(PluginLibrary, KeepsTheNotificationCallback) {
    const LoadedPlugin plugin;
    const auto kept = [&plugin] {
        QvNotificationCallback callback = nullptr;
        std::memcpy(&callback, addressOf(plugin, "(anonymous namespace)::g_notify"),
                    sizeof callback);
        return callback;
    };
    const auto none =
        reinterpret_cast<QvNotificationCallback>(addressOf(plugin, "QvPluginNullNotify"));
    EXPECT_EQ(kept(), none);
    plugin.setNotificationCallback(notify);
    EXPECT_EQ(kept(), notify);
    plugin.setNotificationCallback(nullptr);
    EXPECT_EQ(kept(), none);
    none();
}

template <class T>
class CarriedMessage : public testing::Test {};
TYPED_TEST_SUITE(CarriedMessage, AllMessages<testing::Types>, MessageName);

TYPED_TEST(CarriedMessage, IsInTheLibrary) {
    static const Symbols symbols = definedSymbols(QV_PLUGIN_FILE);
    EXPECT_EQ(symbols.count("vtable for qor::kevra::" + MessageName::GetName<TypeParam>(0)), 1U);
}

}  // namespace
}  // namespace qv::tests
