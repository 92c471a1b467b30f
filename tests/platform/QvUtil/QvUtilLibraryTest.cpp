// SPDX-License-Identifier: Apache-2.0

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/SharedLibrary.h"

namespace {

// The mangled name of qor::kevra::CFArrayTypeInfo::CF_TYPE_ID.
constexpr const char* arrayTypeId = "_ZN3qor5kevra15CFArrayTypeInfo10CF_TYPE_IDE";

TEST(UtilityLibrary, ExportsTheNamesOfItsHeadersAndNothingElse) {
    EXPECT_THAT(
        qv::tests::exportedSymbols(QV_UTIL_LIBRARY),
        testing::UnorderedElementsAre("QvGetFilePath", "QvInitDebugByConfig", "QvSetUtilDebugLevel",
                                      "QvGetUtilDebugLevel", arrayTypeId));
}

TEST(UtilityLibrary, HoldsTheTypeOfArraysOnceLoaded) {
    void* const library = ::dlopen(QV_UTIL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << ::dlerror();
    const auto* const constant = static_cast<const unsigned long*>(::dlsym(library, arrayTypeId));
    const auto arrayType =
        reinterpret_cast<unsigned long (*)()>(::dlsym(library, "CFArrayGetTypeID"));
    ASSERT_NE(constant, nullptr);
    ASSERT_NE(arrayType, nullptr);
    EXPECT_EQ(*constant, arrayType());
    ::dlclose(library);
}

TEST(UtilityLibrary, IsUnloadedAfterUse) {
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
