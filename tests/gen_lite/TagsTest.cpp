// Shows how a parse treats tags that no sender writes: field number 0, and more bytes than needed.

#include <gtest/gtest.h>

#include <string>

#include "gen_lite/AllMessages.h"
#include "gen_lite/Parsing.h"

namespace qv::tests {
namespace {

using namespace qor::kevra;

// Fields with number 0, one of each wire type that can be skipped.
const char* const kZeroFields[] = {"018877665544332211", "0203616263", "0304", "03080112016104",
                                   "0544332211"};

std::string repeated(const std::string& text, int times) {
    std::string result;
    for (int time = 0; time < times; ++time) {
        result += text;
    }
    return result;
}

TEST(FieldNumberZero, IsSkippedInAMessage) {
    for (const std::string field : kZeroFields) {
        EXPECT_EQ(encodedHex(parsed<ServiceInfo>("0801" + field + "120161")), "0801120161");
    }
}

TEST(FieldNumberZero, ServicesBehindItInAnArrayAreKept) {
    for (const std::string field : kZeroFields) {
        EXPECT_EQ(encodedHex(parsed<ServiceInfoArray>("0a020801" + field + "0a020802")),
                  "0a0208010a020802");
    }
}

TEST(FieldNumberZero, ServicesBehindItInAnElementAreKept) {
    // The second element holds 32 bits with field number 0 in front of its identifier.
    EXPECT_EQ(encodedHex(parsed<ServiceInfoArray>("0a020801 0a0705443322110802 0a020803")),
              "0a0208010a0208020a020803");
}

TEST(FieldNumberZero, IsSkippedInGroups) {
    for (const std::string field : kZeroFields) {
        EXPECT_EQ(encodedHex(parsed<ServiceInfo>("1b" + field + "1c 0805")), "0805");
        EXPECT_EQ(encodedHex(parsed<ServiceInfo>("03" + field + "04 0805")), "0805");
    }
}

TEST(FieldNumberZero, GroupsMayNestSixtyFourDeep) {
    EXPECT_EQ(parsed<ServiceInfo>(repeated("03", 64) + repeated("04", 64) + "0805").id(), 5);
    EXPECT_FALSE(
        leftByFailedParse<ServiceInfo>(repeated("03", 65) + repeated("04", 65) + "0805").has_id());
    EXPECT_FALSE(leftByFailedParse<ServiceInfo>(repeated("03", 1'000'000)).has_id());
}

TEST(FieldNumberZero, GroupEndsOnlyAtItsOwnNumber) {
    EXPECT_FALSE(leftByFailedParse<ServiceInfo>("03 0c 0805").has_id());
    EXPECT_FALSE(leftByFailedParse<ServiceInfo>("1b 04 0805").has_id());
}

TEST(FieldNumberZero, EndOfAGroupStopsTheParse) {
    EXPECT_EQ(encodedHex(leftByFailedParse<ServiceInfo>("0801 04 120161")), "0801");
    EXPECT_EQ(encodedHex(leftByFailedParse<ServiceInfoArray>("0a03080104 0a020802")), "0a020801");
}

TEST(FieldNumberZero, WireTypesWithoutAMeaningAreMalformed) {
    EXPECT_EQ(encodedHex(leftByFailedParse<ServiceInfo>("0801 06 120161")), "0801");
    EXPECT_EQ(encodedHex(leftByFailedParse<ServiceInfo>("0801 07 120161")), "0801");
}

TEST(TagZero, StopsTheParse) {
    for (const std::string tag : {"00", "8000", "808080808000", "808080808010"}) {
        EXPECT_EQ(encodedHex(leftByFailedParse<ServiceInfo>("0801" + tag + "120161")), "0801");
    }
    EXPECT_FALSE(leftByFailedParse<ServiceInfo>("1b 00 1c 0805").has_id());
}

TEST(LongTag, IsReadToItsEndWithoutTheBitsAboveThirtyTwo) {
    // Field 1 of wire type 0 in two, five, six and ten bytes, then with bits 32 to 63 set.
    for (const std::string tag :
         {"8800", "8880808000", "888080808000", "88808080808080808000", "88808080f0ffffffff01"}) {
        EXPECT_EQ(encodedHex(parsed<ServiceInfo>(tag + "05 120161")), "0805120161") << tag;
    }
}

TEST(LongTag, MayEndAGroup) {
    EXPECT_EQ(parsed<ServiceInfo>("1b 9c80808080808000 0805").id(), 5);
}

TEST(LongTag, OfElevenBytesIsMalformed) {
    EXPECT_EQ(encodedHex(leftByFailedParse<ServiceInfo>("0801 8880808080808080808000 05 120161")),
              "0801");
}

}  // namespace
}  // namespace qv::tests
