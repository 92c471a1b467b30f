// SPDX-License-Identifier: Apache-2.0

#include "Buffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

TEST(Buffer, ReserveOfTooMuchMemoryFailsAndChangesNothing) {
    cf::Buffer<std::uint16_t> buffer;
    ASSERT_TRUE(buffer.append(7));
    EXPECT_FALSE(buffer.reserve(SIZE_MAX));
    EXPECT_FALSE(buffer.reserve(SIZE_MAX / 2));
    EXPECT_FALSE(buffer.reserve(PTRDIFF_MAX / sizeof(std::uint16_t)));
    ASSERT_EQ(buffer.size(), 1U);
    EXPECT_EQ(buffer[0], 7);
    EXPECT_TRUE(buffer.append(8));
    EXPECT_EQ(buffer.back(), 8);
}

TEST(Buffer, ReleasePassesTheMemoryToTheCaller) {
    cf::Buffer<char> buffer;
    ASSERT_TRUE(buffer.append("text", 4));
    char* const text = buffer.release();
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::memcmp(text, "text", 4), 0);
    EXPECT_EQ(buffer.size(), 0U);
    std::free(text);
    EXPECT_TRUE(buffer.append("more", 4));
    EXPECT_EQ(buffer.size(), 4U);
}

}  // namespace
