// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

Owned<CFArrayRef> arrayOf(std::vector<const void*> values) {
    return own(CFArrayCreate(kCFAllocatorDefault, values.data(),
                             static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
}

TEST(CFArray, HoldsItsValuesInOrder) {
    const auto array = arrayOf({CFSTR("a"), CFSTR("b"), CFSTR("a")});
    EXPECT_EQ(CFArrayGetCount(array.get()), 3);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 0), CFSTR("a"));
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 1), CFSTR("b"));
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 2), CFSTR("a"));
}

TEST(CFArray, IndexOutsideYieldsNull) {
    const auto array = arrayOf({CFSTR("a")});
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 1), nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), -1), nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), CFIndex(1) << 62), nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(makeArray().get(), 0), nullptr);
}

TEST(CFArray, MayBeEmpty) {
    const auto array = own(CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeArrayCallBacks));
    ASSERT_TRUE(array);
    EXPECT_EQ(CFArrayGetCount(array.get()), 0);
    EXPECT_TRUE(equal(array.get(), makeArray().get()));
}

TEST(CFArray, CountThatIsNegativeOrTooLargeIsRefused) {
    const void* values[] = {CFSTR("a")};
    const CFIndex most = std::numeric_limits<CFIndex>::max();
    for (const CFIndex count : {CFIndex(-1), most, most / CFIndex(sizeof(void*))}) {
        EXPECT_EQ(CFArrayCreate(kCFAllocatorDefault, values, count, &kCFTypeArrayCallBacks),
                  nullptr);
    }
    EXPECT_EQ(CFArrayCreateMutable(kCFAllocatorDefault, -1, &kCFTypeArrayCallBacks), nullptr);
}

TEST(CFArray, NullValuesWithACountAreRefused) {
    EXPECT_EQ(CFArrayCreate(kCFAllocatorDefault, nullptr, 1, &kCFTypeArrayCallBacks), nullptr);
}

TEST(CFArray, KnowsTheCallBacksForObjectsAndCopiesOfThem) {
    const CFArrayCallBacks copy = kCFTypeArrayCallBacks;
    CFArrayCallBacks other = copy;
    other.retain = nullptr;
    EXPECT_TRUE(own(CFArrayCreateMutable(kCFAllocatorDefault, 0, &copy)));
    EXPECT_EQ(CFArrayCreateMutable(kCFAllocatorDefault, 0, &other), nullptr);
    EXPECT_EQ(CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &other), nullptr);
}

TEST(CFArray, WithoutCallBacksHoldsAnyPointers) {
    const auto string = makeString("text");
    const int number = 7;
    const auto create = [](const void* first) {
        const void* values[] = {first, nullptr};
        return own(CFArrayCreate(kCFAllocatorDefault, values, 2, nullptr));
    };
    const auto array = create(string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 0), string.get());
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 1), nullptr);
    EXPECT_TRUE(equal(array.get(), create(string.get()).get()));
    EXPECT_FALSE(equal(array.get(), create(makeString("text").get()).get()));
    EXPECT_FALSE(equal(array.get(), create(&number).get()));
    EXPECT_FALSE(writeDocument(create(&number).get()));
    EXPECT_FALSE(equal(arrayOf({}).get(),
                       own(CFArrayCreate(kCFAllocatorDefault, nullptr, 0, nullptr)).get()));
}

TEST(CFArray, RetainsItsValuesUntilItIsDestroyed) {
    const auto string = makeString("text");
    auto array = arrayOf({string.get(), string.get()});
    EXPECT_EQ(CFGetRetainCount(string.get()), 3);
    CFRetain(array.get());
    own(array.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 3);
    array = {};
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
}

TEST(CFArray, GrowsAndRetainsAppendedValues) {
    const auto string = makeString("text");
    {
        const auto array =
            own(CFArrayCreateMutable(kCFAllocatorDefault, 1, &kCFTypeArrayCallBacks));
        for (int round = 0; round < 1000; ++round) {
            CFArrayAppendValue(array.get(), string.get());
        }
        EXPECT_EQ(CFArrayGetCount(array.get()), 1000);
        EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 999), string.get());
        EXPECT_EQ(CFGetRetainCount(string.get()), 1001);
    }
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
}

// A host may use the callbacks with containers of its own.
TEST(CFArray, CallBacksForObjectsRetainAndRelease) {
    const auto string = makeString("text");
    EXPECT_EQ(kCFTypeArrayCallBacks.retain(kCFAllocatorDefault, string.get()), string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 2);
    kCFTypeArrayCallBacks.release(kCFAllocatorDefault, string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
}

TEST(CFArray, EqualsAnArrayOfEqualElementsInTheSameOrder) {
    const auto make = [](const std::vector<std::string>& texts) {
        auto array = makeArray();
        for (const std::string& text : texts) {
            CFArrayAppendValue(array.get(), makeString(text).get());
        }
        return array;
    };
    const auto array = make({"a", "b"});
    EXPECT_TRUE(equal(array.get(), make({"a", "b"}).get()));
    EXPECT_EQ(CFHash(array.get()), CFHash(make({"a", "b"}).get()));
    EXPECT_FALSE(equal(array.get(), make({"b", "a"}).get()));
    EXPECT_FALSE(equal(array.get(), make({"a"}).get()));
    EXPECT_FALSE(equal(array.get(), make({"a", "b", "c"}).get()));
}

TEST(CFArray, CannotBeChangedIfImmutable) {
    const auto string = makeString("text");
    const auto array = arrayOf({CFSTR("a")});
    CFArrayAppendValue(const_cast<CFMutableArrayRef>(array.get()), string.get());
    EXPECT_EQ(CFArrayGetCount(array.get()), 1);
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
}

}  // namespace
}  // namespace qv::tests
