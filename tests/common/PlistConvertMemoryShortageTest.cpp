// Makes memory run out in the converters. Each result is whole, or the converter fails.

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "ObjectMemory.h"
#include "QvPlistConvert.h"
#include "common/MemoryShortage.h"
#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

using google::protobuf::RepeatedPtrField;
using qor::kevra::convert;
using qor::kevra::convertCreate;
using qor::kevra::ServiceInfo;

// Makes the layer keep no memory for new objects. Kept memory neither fails nor counts as freed.
class NoMemoryIsKept : public testing::Environment {
  public:
    void SetUp() override { cf::keepFreedObjects(false); }
};

const testing::Environment* const noMemoryIsKept =
    testing::AddGlobalTestEnvironment(new NoMemoryIsKept);

// Each address is too long to be stored inside a string object.
const std::string kAddresses[] = {std::string(100, 'a'), "caf\u00e9 \u4e2d" + std::string(90, 'b'),
                                  std::string(80, 'c')};

RepeatedPtrField<ServiceInfo> makeServices() {
    RepeatedPtrField<ServiceInfo> services;
    int id = INT_MIN;
    for (const std::string& address : kAddresses) {
        ServiceInfo* const service = services.Add();
        service->set_id(id++);
        service->set_address(address);
    }
    return services;
}

bool isSame(const ServiceInfo& one, const ServiceInfo& other) {
    return one.SerializeAsString() == other.SerializeAsString();
}

TEST(PlistConvertMemoryShortage, DictionaryIsWholeOrRefused) {
    const RepeatedPtrField<ServiceInfo> services = makeServices();
    for (const ServiceInfo& service : services) {
        const auto expected = makeDictionary();
        ASSERT_TRUE(convert(service, expected.get()));
        const int count = sweepShortages([&](Shortage& shortage) {
            const auto dictionary = makeDictionary();
            bool converted = false;
            EXPECT_TRUE(shortage.during([&] { converted = convert(service, dictionary.get()); }));
            EXPECT_TRUE(converted || shortage.happened());
            EXPECT_TRUE(!converted || equal(dictionary.get(), expected.get()));
        });
        EXPECT_GE(count, 3);
    }
}

TEST(PlistConvertMemoryShortage, ArrayIsWholeOrNone) {
    const RepeatedPtrField<ServiceInfo> services = makeServices();
    CFArrayRef made = nullptr;
    ASSERT_TRUE(convertCreate(services, made));
    const auto expected = own(made);
    const int count = sweepShortages([&](Shortage& shortage) {
        CFArrayRef array = nullptr;
        bool converted = false;
        const bool ended = shortage.during([&] { converted = convertCreate(services, array); });
        const auto owner = own(array);
        EXPECT_EQ(ended && converted, array != nullptr);
        EXPECT_TRUE(converted || shortage.happened());
        EXPECT_TRUE(array == nullptr || equal(array, expected.get()));
    });
    EXPECT_GE(count, 15);
}

TEST(PlistConvertMemoryShortage, RefusedAddressLeavesNothingBehind) {
    RepeatedPtrField<ServiceInfo> services = makeServices();
    services[2].set_address("\xff");
    sweepShortages([&](Shortage& shortage) {
        CFArrayRef array = nullptr;
        shortage.during([&] { EXPECT_FALSE(convertCreate(services, array)); });
        EXPECT_EQ(array, nullptr);
    });
}

TEST(PlistConvertMemoryShortage, TextIsWholeOrLeftAlone) {
    for (const std::string& expected : kAddresses) {
        const auto string = makeString(expected);
        const int count = sweepShortages([&](Shortage& shortage) {
            std::string text;
            bool converted = false;
            const bool ended = shortage.during([&] { converted = convert(string.get(), text); });
            EXPECT_TRUE(converted || shortage.happened());
            EXPECT_EQ(text, ended && converted ? expected : "");
        });
        EXPECT_GE(count, 1);
    }
}

// A field may be missing afterwards, but it has no other value.
TEST(PlistConvertMemoryShortage, MessageHasTheStoredFieldsOrLacksThem) {
    const RepeatedPtrField<ServiceInfo> services = makeServices();
    for (const ServiceInfo& service : services) {
        const auto dictionary = makeDictionary();
        ASSERT_TRUE(convert(service, dictionary.get()));
        const int count = sweepShortages([&](Shortage& shortage) {
            ServiceInfo read;
            shortage.during([&] { EXPECT_TRUE(convert(dictionary.get(), read)); });
            EXPECT_TRUE(!read.has_id() || read.id() == service.id());
            EXPECT_TRUE(!read.has_address() || read.address() == service.address() ||
                        (shortage.happened() && read.address().empty()));
            EXPECT_TRUE(shortage.happened() || isSame(read, service));
        });
        EXPECT_GE(count, 3);
    }
}

TEST(PlistConvertMemoryShortage, ReadingAListLeavesNothingBehind) {
    const RepeatedPtrField<ServiceInfo> services = makeServices();
    CFArrayRef array = nullptr;
    ASSERT_TRUE(convertCreate(services, array));
    const auto owner = own(array);
    const auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), makeString("list").get(), array);
    const int count = sweepShortages([&](Shortage& shortage) {
        RepeatedPtrField<ServiceInfo> read;
        bool converted = false;
        const bool ended =
            shortage.during([&] { converted = convert(dictionary.get(), "list", read); });
        EXPECT_TRUE(converted || shortage.happened());
        EXPECT_TRUE(!ended || !converted || read.size() == services.size());
        if (!shortage.happened()) {
            for (int index = 0; index < services.size(); ++index) {
                EXPECT_TRUE(isSame(read[index], services[index]));
            }
        }
    });
    EXPECT_GE(count, 10);
    EXPECT_EQ(CFGetRetainCount(array), 2);
}

}  // namespace
}  // namespace qv::tests
