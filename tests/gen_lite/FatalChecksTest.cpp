// SPDX-License-Identifier: Apache-2.0

// Shows that misuse of a message ends the process with SIGABRT and reports why, in every build.

#include <gtest/gtest.h>

#include <csignal>

#include "gen_lite/AllMessages.h"

namespace qv::tests {
namespace {

using namespace qor::kevra;

constexpr char kIndex[] = R"(CHECK failed: \(index\) < \(size\(\)\): )";
constexpr char kNegativeIndex[] = R"(CHECK failed: \(index\) >= \(0\): )";
constexpr char kSelfMerge[] = R"(CHECK failed: \(&from\) != \(this\): )";

#define EXPECT_ABORT(statement, text) EXPECT_EXIT(statement, testing::KilledBySignal(SIGABRT), text)

TEST(FatalChecksDeathTest, SetterRefusesAnInvalidEnumValue) {
    EXPECT_ABORT(TaskScheduleData().set_schedule_interval(static_cast<ScheduleInterval>(0)),
                 R"(CHECK failed: qor::kevra::ScheduleInterval_IsValid\(value\): )");
    EXPECT_ABORT(FileEvent().set_event(static_cast<FileEventEvent>(3)),
                 R"(CHECK failed: qor::kevra::FileEventEvent_IsValid\(value\): )");
    EXPECT_ABORT(FileEvent().set_type(static_cast<FileEventType>(-1)),
                 R"(CHECK failed: qor::kevra::FileEventType_IsValid\(value\): )");
    EXPECT_ABORT(FileEventResult().set_type(static_cast<FileResultType>(0)),
                 R"(CHECK failed: qor::kevra::FileResultType_IsValid\(value\): )");
    EXPECT_ABORT(NetworkEvent().set_event(static_cast<NetworkEventEvent>(15)),
                 R"(CHECK failed: qor::kevra::NetworkEventEvent_IsValid\(value\): )");
}

TEST(FatalChecksDeathTest, ListOfMessagesRefusesAnIndexAtItsSize) {
    ServiceInfoArray array;
    EXPECT_ABORT(array.services(0), kIndex);
    EXPECT_ABORT(array.mutable_services(0), kIndex);
    array.add_services();
    EXPECT_ABORT(array.services(1), kIndex);
    EXPECT_ABORT(array.mutable_services(INT32_MAX), kIndex);
    EXPECT_ABORT(array.services(-1), kNegativeIndex);
}

TEST(FatalChecksDeathTest, ListOfNumbersRefusesAnIndexAtItsSize) {
    IntArray array;
    EXPECT_ABORT(array.values(0), kIndex);
    EXPECT_ABORT(array.set_values(0, 1), kIndex);
    array.add_values(1);
    EXPECT_ABORT(array.values(1), kIndex);
    EXPECT_ABORT(array.set_values(1, 1), kIndex);
    EXPECT_ABORT(array.set_values(-1, 1), kNegativeIndex);
}

TEST(FatalChecksDeathTest, ListOfStringsRefusesAnIndexAtItsSize) {
    sperateConfig config;
    EXPECT_ABORT(config.remote_disk_unhook_fs(0), kIndex);
    EXPECT_ABORT(config.mutable_remote_disk_unhook_fs(0), kIndex);
    EXPECT_ABORT(config.set_remote_disk_unhook_fs(0, "a"), kIndex);
    config.add_remote_disk_unhook_fs("a");
    EXPECT_ABORT(config.remote_disk_unhook_fs(1), kIndex);
    EXPECT_ABORT(config.mutable_remote_disk_unhook_fs(1), kIndex);
}

template <class T>
class SelfMergeDeathTest : public testing::Test {};
TYPED_TEST_SUITE(SelfMergeDeathTest, AllMessages<testing::Types>, MessageName);

TYPED_TEST(SelfMergeDeathTest, IsFatal) {
    TypeParam message;
    EXPECT_ABORT(message.MergeFrom(message), kSelfMerge);
    EXPECT_ABORT(message.CheckTypeAndMergeFrom(message), kSelfMerge);
}

TEST(FatalChecksDeathTest, CannotBeCaught) {
    EXPECT_ABORT(
        {
            try {
                ServiceInfoArray().services(0);
            } catch (...) {
                std::_Exit(0);
            }
        },
        kIndex);
}

}  // namespace
}  // namespace qv::tests
