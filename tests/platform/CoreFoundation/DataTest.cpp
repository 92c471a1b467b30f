// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

using namespace std::string_literals;

TEST(CFData, CopiesItsBytes) {
    std::string bytes = "a\0b"s;
    const auto data = makeData(bytes);
    bytes = "xyz";
    EXPECT_EQ(CFDataGetLength(data.get()), 3);
    EXPECT_EQ(bytesOf(data.get()), "a\0b"s);
}

TEST(CFData, MayBeEmpty) {
    const auto data = own(CFDataCreate(kCFAllocatorDefault, nullptr, 0));
    ASSERT_TRUE(data);
    EXPECT_EQ(CFDataGetLength(data.get()), 0);
    EXPECT_TRUE(equal(data.get(), makeData("").get()));
}

TEST(CFData, NegativeLengthIsRefused) {
    const UInt8 bytes[] = {1};
    EXPECT_EQ(CFDataCreate(kCFAllocatorDefault, bytes, -1), nullptr);
    EXPECT_EQ(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, bytes, -1, kCFAllocatorNull),
              nullptr);
}

TEST(CFData, NullBytesWithALengthAreRefused) {
    EXPECT_EQ(CFDataCreate(kCFAllocatorDefault, nullptr, 1), nullptr);
    EXPECT_EQ(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, nullptr, 1, kCFAllocatorNull),
              nullptr);
    const auto empty =
        own(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, nullptr, 0, kCFAllocatorNull));
    ASSERT_TRUE(empty);
    EXPECT_EQ(CFDataGetLength(empty.get()), 0);
}

TEST(CFData, EqualBytesAreEqual) {
    EXPECT_TRUE(equal(makeData("a\0b"s).get(), makeData("a\0b"s).get()));
    EXPECT_EQ(CFHash(makeData("a\0b"s).get()), CFHash(makeData("a\0b"s).get()));
    EXPECT_FALSE(equal(makeData("a\0b"s).get(), makeData("a\0c"s).get()));
    EXPECT_FALSE(equal(makeData("ab").get(), makeData("a").get()));
    EXPECT_FALSE(equal(makeData("ab").get(), makeString("ab").get()));
}

TEST(CFData, NullDeallocatorLeavesTheBytesToTheCaller) {
    UInt8 bytes[] = {1, 2, 3};
    {
        const auto data =
            own(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, bytes, 3, kCFAllocatorNull));
        EXPECT_EQ(CFDataGetBytePtr(data.get()), bytes);
        EXPECT_EQ(CFDataGetLength(data.get()), 3);
        EXPECT_EQ(CFGetRetainCount(data.get()), 1);
    }
    bytes[0] = 4;
}

// The sanitizers check that the bytes are freed once.
TEST(CFData, OtherDeallocatorsTakeOverTheBytes) {
    for (const CFAllocatorRef deallocator :
         {kCFAllocatorDefault, kCFAllocatorMalloc, kCFAllocatorSystemDefault}) {
        auto* const bytes = static_cast<UInt8*>(std::malloc(3));
        ASSERT_NE(bytes, nullptr);
        std::copy_n("abc", 3, bytes);
        const auto data =
            own(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, bytes, 3, deallocator));
        EXPECT_EQ(CFDataGetBytePtr(data.get()), bytes);
        EXPECT_TRUE(equal(data.get(), makeData("abc").get()));
        EXPECT_EQ(CFHash(data.get()), CFHash(makeData("abc").get()));
    }
}

}  // namespace
}  // namespace qv::tests
