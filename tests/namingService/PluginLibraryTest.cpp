// The library file: what it shows, what it carries, and that it can be let go.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST(PluginLibrary, IsGoneAfterUse) {
    {
        const InitializedPlugin plugin;
        plugin.registerServices({{1, "a"}});
        plugin.getServices();
    }
    EXPECT_EQ(dlopen(QV_PLUGIN_FILE, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

template <class T>
class CarriedMessage : public testing::Test {};
TYPED_TEST_SUITE(CarriedMessage, AllMessages<testing::Types>, MessageName);

TYPED_TEST(CarriedMessage, IsInside) {
    static const std::set<std::string> inside = definedSymbols(QV_PLUGIN_FILE);
    EXPECT_EQ(inside.count("vtable for qor::kevra::" + MessageName::GetName<TypeParam>(0)), 1U);
}

}  // namespace
}  // namespace qv::tests
