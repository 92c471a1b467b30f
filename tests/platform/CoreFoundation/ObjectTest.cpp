// SPDX-License-Identifier: Apache-2.0

// Shows the behaviour that all objects share.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "platform/CoreFoundation/Documents.h"
#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

// Returns at least one object of every type that can be created.
std::vector<Owned<>> oneOfEach() {
    const auto add = [](std::vector<Owned<>>& objects, CFTypeRef object) {
        objects.push_back(own(CFRetain(object)));
    };
    std::vector<Owned<>> objects;
    add(objects, makeString("text").get());
    add(objects, makeString(u"\u4e2d").get());
    add(objects, makeString(u"\xd800").get());
    add(objects, makeString("").get());
    add(objects, CFSTR("constant"));
    add(objects, makeInteger(-5).get());
    add(objects, makeInteger(0).get());
    add(objects, makeInteger(1).get());
    add(objects, makeReal(2.5).get());
    add(objects, makeReal(std::numeric_limits<double>::infinity()).get());
    add(objects, kCFBooleanTrue);
    add(objects, kCFBooleanFalse);
    add(objects, makeData("bytes").get());
    add(objects, makeData("").get());
    add(objects, makeDate(12.5).get());
    add(objects, makeArray().get());
    add(objects, makeDictionary().get());
    add(objects, kCFNull);
    add(objects, kCFAllocatorMalloc);
    const auto array = makeArray();
    const auto dictionary = makeDictionary();
    for (const auto& object : objects) {
        CFArrayAppendValue(array.get(), object.get());
        CFDictionaryAddValue(dictionary.get(), object.get(), object.get());
    }
    add(objects, array.get());
    add(objects, dictionary.get());
    objects.push_back(readDocument("<dict><key>CF$UID</key><integer>7</integer></dict>"));
    BinaryDocument set;
    set.add("\xc1\x01");
    set.addString("element");
    objects.push_back(readDocument(set.bytes()));
    CFErrorRef error = nullptr;
    CFPropertyListCreateWithData(kCFAllocatorDefault, makeData("").get(), 0, nullptr, &error);
    objects.push_back(own<CFTypeRef>(error));
    return objects;
}

TEST(CFObject, EachTypeHasItsOwnId) {
    const std::vector<CFTypeID> ids{
        CFAllocatorGetTypeID(), CFArrayGetTypeID(),      CFBooleanGetTypeID(),
        CFDataGetTypeID(),      CFDateGetTypeID(),       CFErrorGetTypeID(),
        CFNullGetTypeID(),      CFDictionaryGetTypeID(), CFNumberGetTypeID(),
        CFStringGetTypeID(),    CFSetGetTypeID(),        _CFKeyedArchiverUIDGetTypeID(),
    };
    EXPECT_EQ(std::set<CFTypeID>(ids.begin(), ids.end()).size(), ids.size());
    EXPECT_EQ(CFArrayGetTypeID(), ids[1]);
}

TEST(CFObject, DefaultAllocatorIsNull) {
    EXPECT_EQ(kCFAllocatorDefault, nullptr);
    EXPECT_NE(kCFAllocatorMalloc, nullptr);
    EXPECT_NE(kCFAllocatorSystemDefault, nullptr);
}

TEST(CFObject, IsCreatedWithEachAllocatorButTheNullOne) {
    for (const CFAllocatorRef allocator :
         {kCFAllocatorDefault, kCFAllocatorSystemDefault, kCFAllocatorMalloc}) {
        const auto string =
            own(CFStringCreateWithCString(allocator, "text", kCFStringEncodingUTF8));
        ASSERT_TRUE(string);
        EXPECT_EQ(utf8Of(string.get()), "text");
    }
}

TEST(CFObject, IsNotCreatedWithTheNullAllocator) {
    const CFAllocatorRef none = kCFAllocatorNull;
    const UInt8 bytes[] = {'a'};
    const UniChar units[] = {'a'};
    const SInt32 number = 1;
    EXPECT_EQ(CFStringCreateWithCString(none, "a", kCFStringEncodingUTF8), nullptr);
    EXPECT_EQ(CFStringCreateWithBytes(none, bytes, 1, kCFStringEncodingUTF8, FALSE), nullptr);
    EXPECT_EQ(CFStringCreateWithCharacters(none, units, 1), nullptr);
    EXPECT_EQ(CFNumberCreate(none, kCFNumberSInt32Type, &number), nullptr);
    EXPECT_EQ(CFDataCreate(none, bytes, 1), nullptr);
    EXPECT_EQ(CFDataCreateWithBytesNoCopy(none, bytes, 1, kCFAllocatorNull), nullptr);
    EXPECT_EQ(CFDateCreate(none, 0), nullptr);
    EXPECT_EQ(CFArrayCreate(none, nullptr, 0, &kCFTypeArrayCallBacks), nullptr);
    EXPECT_EQ(CFArrayCreateMutable(none, 0, &kCFTypeArrayCallBacks), nullptr);
    EXPECT_EQ(CFDictionaryCreate(none, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                 &kCFTypeDictionaryValueCallBacks),
              nullptr);
    EXPECT_EQ(CFDictionaryCreateMutable(none, 0, &kCFTypeDictionaryKeyCallBacks,
                                        &kCFTypeDictionaryValueCallBacks),
              nullptr);
    EXPECT_EQ(CFPropertyListCreateFromXMLData(none, makeData("<dict/>").get(), 0, nullptr),
              nullptr);
    EXPECT_EQ(CFPropertyListCreateWithData(none, makeData("<dict/>").get(), 0, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(CFPropertyListCreateXMLData(none, makeArray().get()), nullptr);
}

TEST(CFObject, IsCreatedWithOneReference) {
    EXPECT_EQ(CFGetRetainCount(makeString("a text of some length").get()), 1);
    EXPECT_EQ(CFGetRetainCount(makeString(u"\u4e2d").get()), 1);
    EXPECT_EQ(CFGetRetainCount(makeData("bytes").get()), 1);
    EXPECT_EQ(CFGetRetainCount(makeDate(1).get()), 1);
    EXPECT_EQ(CFGetRetainCount(makeArray().get()), 1);
    EXPECT_EQ(CFGetRetainCount(makeDictionary().get()), 1);
    EXPECT_EQ(CFGetRetainCount(makeReal(2.5).get()), 1);
    EXPECT_EQ(CFGetRetainCount(readDocument("<dict/>").get()), 1);
    EXPECT_EQ(CFGetRetainCount(own(CFCopyDescription(makeArray().get())).get()), 1);
    EXPECT_EQ(CFGetRetainCount(makeInteger(1).get()), 1);
}

TEST(CFObject, RetainingAddsAReferenceAndReturnsTheObject) {
    const auto string = makeString("text");
    EXPECT_EQ(CFRetain(string.get()), string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 2);
    own(string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
}

TEST(CFObject, ConstantsAreNeverDestroyed) {
    for (const CFTypeRef constant :
         {CFTypeRef(kCFBooleanTrue), CFTypeRef(kCFBooleanFalse), CFTypeRef(kCFNull),
          CFTypeRef(CFSTR("constant")), CFTypeRef(kCFAllocatorMalloc),
          CFTypeRef(kCFAllocatorSystemDefault), CFTypeRef(kCFAllocatorNull)}) {
        EXPECT_GT(CFGetRetainCount(constant), 1000000);
        CFRetain(constant);
        for (int round = 0; round < 10; ++round) {
            own(constant);
        }
        EXPECT_GT(CFGetRetainCount(constant), 1000000);
    }
}

TEST(CFObject, EqualsOneWithEqualContentsAndHasTheSameHash) {
    const auto objects = oneOfEach();
    const auto others = oneOfEach();
    ASSERT_EQ(objects.size(), others.size());
    for (std::size_t index = 0; index < objects.size(); ++index) {
        const CFTypeRef object = objects[index].get();
        // Errors are not compared by their contents.
        if (CFGetTypeID(object) == CFErrorGetTypeID()) {
            continue;
        }
        EXPECT_TRUE(equal(object, others[index].get())) << index;
        EXPECT_EQ(CFHash(object), CFHash(others[index].get())) << index;
    }
}

TEST(CFObject, EqualsItselfAndNoObjectWithOtherContents) {
    const auto objects = oneOfEach();
    for (std::size_t one = 0; one < objects.size(); ++one) {
        for (std::size_t other = 0; other < objects.size(); ++other) {
            EXPECT_EQ(equal(objects[one].get(), objects[other].get()), one == other)
                << one << ' ' << other;
        }
    }
}

TEST(CFObject, DoesNotEqualNull) {
    for (const auto& object : oneOfEach()) {
        EXPECT_FALSE(equal(object.get(), nullptr));
        EXPECT_FALSE(equal(nullptr, object.get()));
    }
    EXPECT_TRUE(equal(nullptr, nullptr));
}

// The program must end: using memory that is not an object, or a destroyed object, would damage
// other objects.
TEST(CFObjectDeathTest, MemoryThatIsNotAnObjectEndsTheProgram) {
    alignas(16) const std::uint64_t nothing[8] = {};
    const auto* const object = static_cast<CFTypeRef>(&nothing);
    EXPECT_DEATH(CFHash(object), "");
}

TEST(CFObject, HasADescription) {
    for (const auto& object : oneOfEach()) {
        EXPECT_TRUE(own(CFCopyDescription(object.get())));
    }
}

TEST(CFObject, PropertyListIsDescribedByItsDocument) {
    const auto tree = readDocument("<dict><key>key</key><array><real>2.5</real></array></dict>");
    EXPECT_EQ(utf8Of(own(CFCopyDescription(tree.get())).get()), writeDocument(tree.get()));
}

TEST(CFObject, NullHasADescription) {
    EXPECT_EQ(utf8Of(own(CFCopyDescription(nullptr)).get()), "(null)\n");
}

TEST(CFObject, ShowWritesTheDescriptionToStandardError) {
    testing::internal::CaptureStderr();
    CFShow(makeString("shown text").get());
    CFShow(nullptr);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::AllOf(testing::HasSubstr("shown text"), testing::HasSubstr("(null)")));
}

}  // namespace
}  // namespace qv::tests
