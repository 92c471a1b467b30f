// SPDX-License-Identifier: Apache-2.0

// Tests the accessors of the messages, their defaults, and how they are copied. The measured inputs
// (WireVectorsTest) show how each type is read and written.

#include <gmock/gmock.h>
#include <google/protobuf/arena.h>
#include <google/protobuf/io/coded_stream.h>
#include <gtest/gtest.h>

#include "gen_lite/AllMessages.h"
#include "gen_lite/Hex.h"
#include "gen_lite/Parsing.h"

namespace qv::tests {
namespace {

using namespace qor::kevra;

TEST(ServiceInfo, WithoutFieldsIsEmpty) {
    const ServiceInfo service;
    EXPECT_EQ(service.ByteSize(), 0);
    EXPECT_EQ(service.id(), 0);
    EXPECT_EQ(service.address(), "");
    EXPECT_FALSE(service.has_id());
    EXPECT_FALSE(service.has_address());
    EXPECT_TRUE(service.IsInitialized());
}

TEST(ServiceInfo, UnknownFieldsOfEveryWireTypeAreDropped) {
    // The unknown fields are a varint, 64 bits, text, a group with a field in it, and 32 bits.
    const auto service =
        parsed<ServiceInfo>("18ff01 19 0102030405060708 1a03616263 1b2001 1c 1d01020304 0805");
    EXPECT_EQ(encodedHex(service), "0805");
}

TEST(ServiceInfo, NegativeSizeDecodesNothingAndReadsNothing) {
    ServiceInfo service;
    service.set_id(1);
    EXPECT_FALSE(service.ParseFromArray(reinterpret_cast<void*>(1), -1));
    EXPECT_FALSE(service.has_id());
    EXPECT_FALSE(service.ParsePartialFromArray(reinterpret_cast<void*>(1), INT32_MIN));
}

TEST(ServiceInfo, NullIsAnEmptyInput) {
    ServiceInfo service;
    EXPECT_TRUE(service.ParseFromArray(nullptr, 0));
}

TEST(ServiceInfo, BufferThatIsTooSmallIsRefused) {
    ServiceInfo service;
    service.set_id(300);
    char buffer[3];
    EXPECT_FALSE(service.SerializeToArray(buffer, 2));
    EXPECT_TRUE(service.SerializeToArray(buffer, 3));
}

TEST(ServiceInfo, TextIsSetFromStringsAndArrays) {
    ServiceInfo service;
    service.set_address("literal");
    EXPECT_EQ(service.address(), "literal");
    service.set_address(std::string("string"));
    EXPECT_EQ(service.address(), "string");
    const std::string constant("constant");
    service.set_address(constant);
    EXPECT_EQ(service.address(), "constant");
    service.set_address("a\0b", 3);
    EXPECT_EQ(service.address(), std::string("a\0b", 3));
    service.mutable_address()->append("c");
    EXPECT_EQ(service.address(), std::string("a\0bc", 4));
    service.clear_address();
    EXPECT_FALSE(service.has_address());
    EXPECT_EQ(service.address(), "");
}

TEST(ServiceInfo, ClearKeepsASmallBufferAndLetsGoOfALargeOne) {
    ServiceInfo service;
    service.set_address(std::string(100, 'x'));
    service.Clear();
    EXPECT_GE(service.mutable_address()->capacity(), 100U);
    service.set_address(std::string(1'000'000, 'x'));
    service.Clear();
    EXPECT_LT(service.mutable_address()->capacity(), 1000U);
}

TEST(ServiceInfoArray, WholeListIsAccessible) {
    ServiceInfoArray array;
    array.mutable_services()->Add()->set_id(4);
    EXPECT_EQ(array.services().Get(0).id(), 4);
    array.mutable_services(0)->set_id(5);
    EXPECT_EQ(array.services(0).id(), 5);
    array.clear_services();
    EXPECT_EQ(array.services_size(), 0);
}

TEST(ServiceInfoArray, ClearedElementsAreReused) {
    ServiceInfoArray array;
    const ServiceInfo* const element = array.add_services();
    array.mutable_services(0)->set_id(5);
    array.Clear();
    EXPECT_EQ(array.add_services(), element);
    EXPECT_FALSE(element->has_id());
}

TEST(IntArray, ListIsChangedAndAppendedTo) {
    auto array = parsed<IntArray>("08010802");
    array.set_values(1, 7);
    EXPECT_THAT(array.values(), testing::ElementsAre(1, 7));
    array.mutable_values()->Add(8);
    EXPECT_EQ(array.values(2), 8);
    array.MergeFrom(parsed<IntArray>("0809"));
    EXPECT_THAT(array.values(), testing::ElementsAre(1, 7, 8, 9));
    array.clear_values();
    EXPECT_EQ(array.values_size(), 0);
}

TEST(TaskScheduleData, IntervalThatTheEnumDoesNotNameIsDropped) {
    for (const char* const hex : {"0800", "0806"}) {
        const auto schedule = parsed<TaskScheduleData>(hex);
        EXPECT_FALSE(schedule.has_schedule_interval());
        EXPECT_EQ(schedule.schedule_interval(), 1);
    }
    EXPECT_EQ(parsed<TaskScheduleData>("0805").schedule_interval(), 5);
    // The field keeps its earlier value.
    EXPECT_EQ(parsed<TaskScheduleData>("0805 0806").schedule_interval(), 5);
}

TEST(TaskScheduleData, ClearRestoresTheDefault) {
    auto schedule = parsed<TaskScheduleData>("0805 3801");
    schedule.Clear();
    EXPECT_FALSE(schedule.has_schedule_interval());
    EXPECT_EQ(schedule.schedule_interval(), 1);
    EXPECT_EQ(encodedHex(schedule), "");
}

TEST(Defaults, FreshEventsReadAsDeclared) {
    EXPECT_EQ(FileEvent().event(), 1);
    EXPECT_EQ(FileEvent().type(), 0);
    EXPECT_EQ(NetworkEvent().event(), 1);
    EXPECT_EQ(FileEventResult().type(), 1);
    EXPECT_EQ(RegFileEvent().type(), 255);
    EXPECT_EQ(RegNetworkEvent().type(), 255);
    EXPECT_TRUE(sperateConfig().enable_time_machine_scan());
    EXPECT_TRUE(sperateConfig().enable_exclude());
    EXPECT_TRUE(RegFileEvent().config().enable_exclude());
    EXPECT_FALSE(RegFileEvent().has_config());
}

template <class T>
class EveryMessage : public testing::Test {};
TYPED_TEST_SUITE(EveryMessage, AllMessages<testing::Types>, MessageName);

TYPED_TEST(EveryMessage, NewMakesOneOfTheSameType) {
    const std::unique_ptr<google::protobuf::MessageLite> made(TypeParam().New());
    EXPECT_EQ(made->GetTypeName(), TypeParam().GetTypeName());
    EXPECT_EQ(made->GetTypeName(), "qor.kevra." + MessageName::GetName<TypeParam>(0));
}

TEST(NetworkEvent, IsWrittenInAscendingOrderOfTheNumbers) {
    NetworkEvent event;
    event.set_type(2);
    event.set_time(1);
    EXPECT_EQ(encodedHex(event), "58016002");
}

TEST(UnusedNumbers, AreDropped) {
    EXPECT_EQ(encodedHex(parsed<NetworkEvent>("3801")), "");
    EXPECT_EQ(encodedHex(parsed<URLEvent>("1801")), "");
    EXPECT_EQ(encodedHex(parsed<sperateConfig>("2801")), "");
}

TEST(sperateConfig, StringsAreAddedAndReplaced) {
    sperateConfig config;
    config.add_remote_disk_unhook_fs("nfs");
    config.add_remote_disk_unhook_fs(std::string("smb"));
    config.add_remote_disk_unhook_fs("a\0b", 3);
    *config.add_remote_disk_unhook_fs() = "afp";
    config.set_remote_disk_unhook_fs(1, "cifs");
    config.mutable_remote_disk_unhook_fs(0)->append("4");
    EXPECT_THAT(config.remote_disk_unhook_fs(),
                testing::ElementsAre("nfs4", "cifs", std::string("a\0b", 3), "afp"));
    EXPECT_EQ(encodedHex(config),
              "22046e667334"
              "220463696673"
              "2203610062"
              "2203616670");
    EXPECT_EQ(config.remote_disk_unhook_fs_size(), 4);
}

TEST(Copying, MovedAndSwappedMessagesKeepTheirContents) {
    auto a = parsed<RegFileEvent>("0801 1a020801");
    RegFileEvent b(std::move(a));
    EXPECT_EQ(encodedHex(b), "08011a020801");
    RegFileEvent c;
    c = std::move(b);
    EXPECT_EQ(encodedHex(c), "08011a020801");
    RegFileEvent d;
    d.Swap(&c);
    EXPECT_EQ(encodedHex(c), "");
    EXPECT_EQ(encodedHex(d), "08011a020801");
    swap(c, d);
    EXPECT_EQ(encodedHex(c), "08011a020801");
    c.Swap(&c);
    const RegFileEvent& same = c;
    c = same;
    EXPECT_EQ(encodedHex(c), "08011a020801");
}

TEST(Copying, BetweenAnArenaAndTheHeapCopies) {
    google::protobuf::Arena arena;
    auto* const onArena = google::protobuf::Arena::CreateMessage<RegFileEvent>(&arena);
    EXPECT_EQ(onArena->GetArena(), &arena);
    ASSERT_TRUE(onArena->ParseFromString(fromHex("0801 1a04 2202 6162")));
    RegFileEvent onHeap;
    onHeap.set_plugin(2);
    onHeap.Swap(onArena);
    EXPECT_EQ(encodedHex(onHeap), "08011a0422026162");
    EXPECT_EQ(encodedHex(*onArena), "0802");
    *onArena = std::move(onHeap);
    EXPECT_EQ(encodedHex(*onArena), "08011a0422026162");
}

TEST(Copying, ElementsLeaveAndJoinAListOnAnArenaAsCopies) {
    google::protobuf::Arena arena;
    auto* const array = google::protobuf::Arena::CreateMessage<ServiceInfoArray>(&arena);
    array->add_services()->set_id(1);
    const std::unique_ptr<ServiceInfo> released(array->mutable_services()->ReleaseLast());
    EXPECT_EQ(released->id(), 1);
    auto* const added = new ServiceInfo;
    added->set_id(2);
    array->mutable_services()->AddAllocated(added);
    EXPECT_EQ(encodedHex(*array), "0a020802");
}

TEST(Streams, MergeAppendsToTheMessage) {
    const std::string bytes = fromHex("0a05080112016a");
    google::protobuf::io::CodedInputStream input(
        reinterpret_cast<const std::uint8_t*>(bytes.data()), static_cast<int>(bytes.size()));
    ServiceInfoArray array;
    array.add_services()->set_id(7);
    EXPECT_TRUE(array.MergeFromCodedStream(&input));
    EXPECT_TRUE(input.ConsumedEntireMessage());
    EXPECT_EQ(encodedHex(array), "0a0208070a05080112016a");
}

TEST(Streams, MergeFailsIfAFieldIsMissingOrTheInputIsMalformed) {
    const Quiet quiet;
    for (const char* const hex : {"", "08"}) {
        const std::string bytes = fromHex(hex);
        google::protobuf::io::CodedInputStream input(
            reinterpret_cast<const std::uint8_t*>(bytes.data()), static_cast<int>(bytes.size()));
        EXPECT_FALSE(DebugOption().MergeFromCodedStream(&input)) << hex;
    }
}

TEST(EnumValidity, HoldsOnlyForNamedNumbers) {
    const struct {
        bool (*isValid)(int);
        std::vector<int> valid;
    } enums[] = {
        {ProxyType_IsValid, {0, 1, 2, 3}},
        {ScheduleInterval_IsValid, {1, 2, 3, 4, 5}},
        {LorxProtectStatus_IsValid, {1, 2}},
        {FileEventEvent_IsValid, {1, 2, 4, 8, 16, 32, 64, 128}},
        {FileEventType_IsValid, {0, 1, 2}},
        {FileResultType_IsValid, {1, 2}},
        {FileChannel_IsValid, {0, 1, 2, 3, 10, 11, 999}},
        {NetworkEventEvent_IsValid, {1, 2, 4, 8}},
    };
    for (const auto& [isValid, valid] : enums) {
        for (int number = -1; number <= 1100; ++number) {
            const bool named = std::find(valid.begin(), valid.end(), number) != valid.end();
            EXPECT_EQ(isValid(number), named) << number;
        }
        EXPECT_FALSE(isValid(INT32_MIN));
        EXPECT_FALSE(isValid(INT32_MAX));
    }
}

}  // namespace
}  // namespace qv::tests
