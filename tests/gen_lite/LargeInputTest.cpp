// SPDX-License-Identifier: Apache-2.0

// Shows what every function that reads a message makes of an input around and beyond 64 MiB.

#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <string>

#include "gen_lite/AllMessages.h"
#include "gen_lite/LargeInput.h"
#include "gen_lite/Parsing.h"
#include "support/UsualOrReduced.h"

namespace qv::tests {
namespace {

using qor::kevra::ServiceInfoArray;

// Parses `end` behind service 1, with its first `before` bytes within 64 MiB. The parse has to
// fail. Returns what the message holds behind service 1, in hexadecimal text.
std::string leftBehindTheFirst(std::size_t before, const std::string& endHex) {
    const Quiet quiet;
    ServiceInfoArray array;
    EXPECT_FALSE(array.ParseFromString(largeInput(before, fromHex(endHex))));
    const std::string encoded = encodedHex(array);
    EXPECT_EQ(encoded.substr(0, 8), "0a020801");
    return encoded.substr(8);
}

TEST(LargeInput, ServiceAtTheEndOf64MiBIsKept) {
    EXPECT_EQ(leftBehindTheFirst(4, "0a020802 0a020803"), "0a020802");
    EXPECT_EQ(leftBehindTheFirst(4, "0a020802 00"), "0a020802");
}

TEST(LargeInput, ServiceAcrossTheEdgeIsReadAsCut) {
    // The service 2 with the address "abcd".
    const std::string service = "0a08 0802 120461626364 0a020803";
    EXPECT_EQ(leftBehindTheFirst(10, service), "0a080802120461626364");
    EXPECT_EQ(leftBehindTheFirst(8, service), "0a06080212026162");
    EXPECT_EQ(leftBehindTheFirst(6, service), "0a0408021200");
    EXPECT_EQ(leftBehindTheFirst(5, service), "0a0408021200");
    EXPECT_EQ(leftBehindTheFirst(4, service), "0a020802");
    EXPECT_EQ(leftBehindTheFirst(3, service), "0a00");
    EXPECT_EQ(leftBehindTheFirst(1, service), "0a00");
    EXPECT_EQ(leftBehindTheFirst(0, service), "");
}

TEST(LargeInput, NumberAcrossTheEdgeIsNotMadeUp) {
    EXPECT_EQ(leftBehindTheFirst(4, "0a03088201 0a020803"), "0a00");
}

TEST(LargeInput, UnknownFieldsAcrossTheEdgeEndTheParse) {
    EXPECT_EQ(leftBehindTheFirst(4, "1a06000000000000 0a020803"), "");
    EXPECT_EQ(leftBehindTheFirst(1, "1b 1c 0a020803"), "");
    EXPECT_EQ(leftBehindTheFirst(1, "18 00 0a020803"), "");
    EXPECT_EQ(leftBehindTheFirst(2, "1d00000000 0a020803"), "");
    EXPECT_EQ(leftBehindTheFirst(1, "9a01 00 0a020803"), "");
}

TEST(LargeInput, IsReadAlikeOnEveryRoad) {
    // The service 2 with the address "abcd", of which "ab" lies within 64 MiB.
    const std::string input = largeInput(8, fromHex("0a08 0802 120461626364 0a020803"));
    const Quiet quiet;
    // The reduced step leaves an array and a stream.
    constexpr std::size_t kStep = usualOrReduced(1, 5);
    for (std::size_t index = 0; index < std::size(kRoads<ServiceInfoArray>); index += kStep) {
        const Road<ServiceInfoArray>& road = kRoads<ServiceInfoArray>[index];
        ServiceInfoArray array;
        EXPECT_FALSE(road.parse(&array, input)) << road.name;
        EXPECT_EQ(encodedHex(array), "0a0208010a06080212026162") << road.name;
    }
}

TEST(LargeInput, Of64MiBIsReadWhole) {
    const std::string input = largeInput(4, fromHex("0a020802"));
    ASSERT_EQ(input.size(), kReadBytes);
    ServiceInfoArray array;
    google::protobuf::MessageLite* const base = &array;
    EXPECT_TRUE(array.ParseFromString(input));
    EXPECT_EQ(encodedHex(array), "0a0208010a020802");
    EXPECT_TRUE(base->ParseFromString(input));
    EXPECT_EQ(encodedHex(array), "0a0208010a020802");
}

TEST(LargeInput, IsReadUpToTheLimitThatTheCallerSets) {
    const std::string bytes = largeInput(4, fromHex("0a020802 0a020803"));
    google::protobuf::io::CodedInputStream input(
        reinterpret_cast<const std::uint8_t*>(bytes.data()), static_cast<int>(bytes.size()));
    input.SetTotalBytesLimit(static_cast<int>(bytes.size()));
    ServiceInfoArray array;
    EXPECT_TRUE(array.ParseFromCodedStream(&input));
    EXPECT_EQ(encodedHex(array), "0a0208010a0208020a020803");
}

TEST(LargeInput, PackedRunAcrossTheEdgeKeepsWholeNumbers) {
    // One run of numbers 1, each in one byte, behind a tag and a length of four bytes.
    const std::string input = fromHex("0a8a808020") + std::string(kReadBytes + 10, '\x01');
    qor::kevra::IntArray array;
    const Quiet quiet;
    EXPECT_FALSE(array.ParseFromString(input));
    EXPECT_EQ(array.values_size(), static_cast<int>(kReadBytes - 5));
}

}  // namespace
}  // namespace qv::tests
