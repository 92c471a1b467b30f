// SPDX-License-Identifier: Apache-2.0

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/SharedLibrary.h"
#include "support/TemporaryDirectory.h"

namespace {

using testing::UnorderedElementsAre;

TEST(DebugLogLibrary, ExportsItsFunctionsAndNothingElse) {
    EXPECT_THAT(qv::tests::exportedSymbols(QV_LOG_LIBRARY),
                UnorderedElementsAre("LorxOpenDbgLog", "LorxIsEnableLog", "LorxWriteDbgLog",
                                     "LorxSetDbgLogLevel", "LorxReleaseDbgLog"));
}

TEST(DebugLogLibrary, IsUnloadedAfterUse) {
    const qv::tests::TemporaryDirectory directory;
    void* const library = ::dlopen(QV_LOG_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << ::dlerror();
    const auto open = reinterpret_cast<void* (*)(const char*, const char*, int)>(
        ::dlsym(library, "LorxOpenDbgLog"));
    const auto write = reinterpret_cast<void (*)(void*, int, const char*, ...)>(
        ::dlsym(library, "LorxWriteDbgLog"));
    const auto release = reinterpret_cast<void (*)(void*)>(::dlsym(library, "LorxReleaseDbgLog"));

    void* const handle = open(directory.path("a.log").c_str(), "namingService", 6);
    ASSERT_NE(handle, nullptr);
    write(handle, 6, "%s", "once");
    release(handle);

    ASSERT_EQ(::dlclose(library), 0);
    EXPECT_EQ(::dlopen(QV_LOG_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace
