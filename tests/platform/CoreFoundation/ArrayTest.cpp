#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "platform/CoreFoundation/CountingCallBacks.h"
#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

using Counting = CountingCallBacks;

class CFArray : public testing::Test {
  protected:
    CFArray() { Counting::reset(); }

    static Owned<CFArrayRef> make(std::vector<const void*> values,
                                  const CFArrayCallBacks* callBacks = &Counting::ofArray) {
        return own(CFArrayCreate(kCFAllocatorDefault, values.data(),
                                 static_cast<CFIndex>(values.size()), callBacks));
    }

    const int one = 1;
    const int alsoOne = 1;
    const int two = 2;
};

TEST_F(CFArray, HoldsItsValuesInOrder) {
    const auto array = make({&one, &two, &one});
    EXPECT_EQ(CFArrayGetCount(array.get()), 3);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 0), &one);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 1), &two);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 2), &one);
}

TEST_F(CFArray, IndexOutsideYieldsNull) {
    const auto array = make({&one});
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 1), nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), -1), nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), CFIndex(1) << 62), nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(makeArray().get(), 0), nullptr);
}

TEST_F(CFArray, MayBeEmpty) {
    const auto array = own(CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeArrayCallBacks));
    ASSERT_TRUE(array);
    EXPECT_EQ(CFArrayGetCount(array.get()), 0);
    EXPECT_TRUE(equal(array.get(), makeArray().get()));
}

TEST_F(CFArray, NegativeCountIsRefused) {
    const void* values[] = {&one};
    EXPECT_EQ(CFArrayCreate(kCFAllocatorDefault, values, -1, &kCFTypeArrayCallBacks), nullptr);
    EXPECT_EQ(CFArrayCreateMutable(kCFAllocatorDefault, -1, &kCFTypeArrayCallBacks), nullptr);
}

TEST_F(CFArray, TooManyValuesAreRefused) {
    const void* values[] = {kCFBooleanTrue};
    const CFIndex most = std::numeric_limits<CFIndex>::max();
    const auto pointerSize = static_cast<CFIndex>(sizeof(void*));
    for (const CFArrayCallBacks* const callBacks : {&kCFTypeArrayCallBacks, &Counting::ofArray}) {
        for (const CFIndex count : {most, most / pointerSize}) {
            EXPECT_EQ(CFArrayCreate(kCFAllocatorDefault, values, count, callBacks), nullptr);
        }
    }
    // This count is too large only together with the array and its callbacks.
    const CFIndex count = (most - static_cast<CFIndex>(sizeof(CFArrayCallBacks))) / pointerSize;
    EXPECT_EQ(CFArrayCreate(kCFAllocatorDefault, values, count, &Counting::ofArray), nullptr);
}

TEST_F(CFArray, NullValuesWithACountAreRefused) {
    EXPECT_EQ(CFArrayCreate(kCFAllocatorDefault, nullptr, 1, &kCFTypeArrayCallBacks), nullptr);
}

// One of the callbacks for objects is missing. The array calls the others and nothing else.
TEST_F(CFArray, OneOfTheCallBacksForObjectsMayBeMissing) {
    const auto string = makeString("text");
    const void* values[] = {string.get()};
    CFArrayCallBacks withoutEqual = kCFTypeArrayCallBacks;
    withoutEqual.equal = nullptr;
    CFArrayCallBacks withoutRelease = kCFTypeArrayCallBacks;
    withoutRelease.release = nullptr;
    {
        const auto array = make({string.get()}, &withoutEqual);
        EXPECT_EQ(CFGetRetainCount(string.get()), 2);
        EXPECT_TRUE(equal(array.get(), make({string.get()}, &withoutEqual).get()));
        EXPECT_FALSE(equal(array.get(), make({makeString("text").get()}, &withoutEqual).get()));
    }
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
    own(CFArrayCreate(kCFAllocatorDefault, values, 1, &withoutRelease));
    EXPECT_EQ(CFGetRetainCount(string.get()), 2);
    own(string.get());
}

TEST_F(CFArray, OfObjectsNeverEqualsOneOfPointers) {
    const auto ofObjects = make({kCFBooleanTrue}, &kCFTypeArrayCallBacks);
    const auto ofPointers = make({kCFBooleanTrue}, nullptr);
    EXPECT_FALSE(equal(ofObjects.get(), ofPointers.get()));
    EXPECT_FALSE(equal(ofPointers.get(), ofObjects.get()));
}

TEST_F(CFArray, RetainsItsValuesUntilItIsDestroyed) {
    {
        const auto array = make({&one, &two, &one});
        EXPECT_EQ(Counting::held[&one], 2);
        EXPECT_EQ(Counting::held[&two], 1);
        CFRetain(array.get());
        own(array.get());
        EXPECT_EQ(Counting::held[&one], 2);
    }
    EXPECT_EQ(Counting::held[&one], 0);
    EXPECT_EQ(Counting::held[&two], 0);
}

TEST_F(CFArray, RetainsAppendedValues) {
    {
        const auto array = own(CFArrayCreateMutable(kCFAllocatorDefault, 0, &Counting::ofArray));
        for (int round = 0; round < 1000; ++round) {
            CFArrayAppendValue(array.get(), &two);
        }
        EXPECT_EQ(CFArrayGetCount(array.get()), 1000);
        EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 999), &two);
        EXPECT_EQ(Counting::held[&two], 1000);
    }
    EXPECT_EQ(Counting::held[&two], 0);
}

TEST_F(CFArray, RetainsItsObjectsUntilItIsDestroyed) {
    const auto string = makeString("text");
    auto array = makeArray();
    CFArrayAppendValue(array.get(), string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 2);
    CFArrayAppendValue(array.get(), string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 3);
    array = {};
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
}

TEST_F(CFArray, WithoutCallBacksComparesPointers) {
    for (const bool isGiven : {false, true}) {
        const CFArrayCallBacks none{};
        const CFArrayCallBacks* const callBacks = isGiven ? &none : nullptr;
        const auto array = make({&one, nullptr}, callBacks);
        EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 0), &one);
        EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 1), nullptr);
        EXPECT_TRUE(equal(array.get(), make({&one, nullptr}, callBacks).get()));
        EXPECT_FALSE(equal(array.get(), make({&alsoOne, nullptr}, callBacks).get()));
        EXPECT_TRUE(own(CFCopyDescription(array.get())));
    }
    EXPECT_EQ(Counting::heldInAll(), 0);
}

TEST_F(CFArray, CopiesTheCallBacks) {
    CFArrayCallBacks callBacks = Counting::ofArray;
    const auto array = own(CFArrayCreateMutable(kCFAllocatorDefault, 0, &callBacks));
    callBacks = {};
    CFArrayAppendValue(array.get(), &one);
    EXPECT_EQ(Counting::held[&one], 1);
}

TEST_F(CFArray, IsComparedWithItsCallBack) {
    EXPECT_TRUE(equal(make({&one, &two}).get(), make({&alsoOne, &two}).get()));
    EXPECT_GT(Counting::comparisons, 0);
    EXPECT_FALSE(equal(make({&one, &two}).get(), make({&two, &one}).get()));
}

TEST_F(CFArray, EqualsAnArrayOfEqualElementsInTheSameOrder) {
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

TEST_F(CFArray, DescriptionCallsTheCallBack) {
    const auto array = make({&one});
    const auto description = own(CFCopyDescription(array.get()));
    EXPECT_NE(utf8Of(description.get()).value_or("").find("an int"), std::string::npos);
}

TEST_F(CFArray, CannotBeChangedIfImmutable) {
    const auto array = make({&one});
    CFArrayAppendValue(const_cast<CFMutableArrayRef>(array.get()), &two);
    EXPECT_EQ(CFArrayGetCount(array.get()), 1);
    EXPECT_EQ(Counting::held[&two], 0);
}

TEST_F(CFArray, GrowsBeyondItsCapacity) {
    const auto array = own(CFArrayCreateMutable(kCFAllocatorDefault, 1, &kCFTypeArrayCallBacks));
    for (int index = 0; index < 100; ++index) {
        CFArrayAppendValue(array.get(), kCFBooleanTrue);
    }
    EXPECT_EQ(CFArrayGetCount(array.get()), 100);
}

}  // namespace
}  // namespace qv::tests
