// SPDX-License-Identifier: Apache-2.0

// Lets each allocation fail while a log is set up.

#include <gtest/gtest.h>

#include <fstream>

#include "QvLog.h"
#include "QvUtil.h"
#include "support/FailingCalls.h"
#include "support/ScratchDirectories.h"

namespace {

TEST(DebugLogSetupMemoryShortage, LogHasTheConfiguredOrTheDefaultLevelOrIsNotOpened) {
    const qv::tests::ScratchDirectories directories{};
    std::ofstream(directories.path("module.conf.plist"))
        << R"(<plist><dict><key>DebugLevel</key><integer>3</integer></dict></plist>)";
    const std::string logPath = directories.path("module.log");

    bool wasAtDefault = false;
    for (int count = 0;; ++count) {
        ASSERT_LT(count, 10'000);
        void* handle = nullptr;
        qv::tests::failMallocAfter(count);
        const int result =
            QvInitDebugByConfig(&handle, "module.conf.plist", "module", logPath.c_str());
        const bool failed = qv::tests::mallocFailed();
        EXPECT_EQ(result, handle != nullptr ? 0 : -1);
        if (handle == nullptr) {
            EXPECT_TRUE(failed);
            continue;
        }
        const bool isConfigured = LorxIsEnableLog(handle, 4) == 0;
        EXPECT_NE(LorxIsEnableLog(handle, isConfigured ? 3 : 6), 0);
        EXPECT_EQ(LorxIsEnableLog(handle, isConfigured ? 4 : 7), 0);
        LorxReleaseDbgLog(handle);
        if (!failed) {
            EXPECT_TRUE(isConfigured);
            break;
        }
        wasAtDefault = wasAtDefault || !isConfigured;
    }
    EXPECT_TRUE(wasAtDefault);
}

}  // namespace
