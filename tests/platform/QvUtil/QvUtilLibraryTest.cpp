#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/SharedLibrary.h"

namespace {

TEST(UtilityLibrary, ExportsItsFunctionsAndNothingElse) {
    EXPECT_THAT(qv::tests::exportedSymbols(QV_UTIL_LIBRARY),
                testing::UnorderedElementsAre("QvGetFilePath", "QvInitDebugByConfig",
                                              "QvSetUtilDebugLevel", "QvGetUtilDebugLevel"));
}

TEST(UtilityLibrary, IsGoneAfterUse) {
    void* const library = ::dlopen(QV_UTIL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << ::dlerror();
    const auto getFilePath =
        reinterpret_cast<char* (*)(char*, int, const char*)>(::dlsym(library, "QvGetFilePath"));
    char buffer[4096];
    EXPECT_NE(getFilePath(buffer, sizeof buffer, "a"), nullptr);

    ASSERT_EQ(::dlclose(library), 0);
    EXPECT_EQ(::dlopen(QV_UTIL_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace
