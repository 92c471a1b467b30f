// Tests every kind of field that a definition file may use. The product's own messages use only
// some of them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <limits>

#include "everyKind.pb.h"
#include "gen_lite/Hex.h"
#include "gen_lite/Parsing.h"

namespace qv::tests {
namespace {

using namespace qor::kevra::every::kind;
using testing::ElementsAre;

template <class T>
T partlyParsed(const std::string& hex) {
    T message;
    EXPECT_TRUE(message.ParsePartialFromString(fromHex(hex))) << hex;
    return message;
}

TEST(EveryKind, DefaultsAreReadAndNotWritten) {
    const Singles message;
    EXPECT_EQ(message.f_int32(), INT32_MIN);
    EXPECT_EQ(message.f_int64(), INT64_MIN);
    EXPECT_EQ(message.f_uint32(), UINT32_MAX);
    EXPECT_EQ(message.f_uint64(), UINT64_MAX);
    EXPECT_EQ(message.f_sint32(), -1);
    EXPECT_EQ(message.f_sint64(), 127);
    EXPECT_EQ(message.f_fixed32(), 0U);
    EXPECT_TRUE(message.f_bool());
    EXPECT_EQ(message.f_colour(), COLOUR_NEGATIVE);
    EXPECT_EQ(encodedHex(message), "");
}

TEST(EveryKind, SinglesAreWrittenAndReadBack) {
    Singles message;
    message.set_f_int32(-1);
    message.set_f_int64(1);
    message.set_f_uint32(2);
    message.set_f_uint64(3);
    message.set_f_sint32(-2);
    message.set_f_sint64(INT64_MIN);
    message.set_f_fixed32(0x01020304);
    message.set_f_fixed64(5);
    message.set_f_sfixed32(-1);
    message.set_f_sfixed64(-2);
    message.set_f_float(1.5F);
    message.set_f_double(-0.0);
    message.set_f_bool(false);
    message.set_f_string("s");
    message.set_f_bytes("\0b", 2);
    message.set_f_colour(COLOUR_NEGATIVE);
    message.mutable_f_message()->set_f_bool(true);
    message.set_f_last(1);
    const std::string expected =
        "08ffffffffffffffffff01"
        "1001"
        "1802"
        "2003"
        "2803"
        "30ffffffffffffffffff01"
        "3d04030201"
        "410500000000000000"
        "4dffffffff"
        "51feffffffffffffff"
        "5d0000c03f"
        "610000000000000080"
        "6800"
        "720173"
        "7a020062"
        "8001fbffffffffffffffff01"
        "8a01026801"
        "f8ffffff0f01";
    EXPECT_EQ(encodedHex(message), expected);
    EXPECT_EQ(static_cast<std::size_t>(message.ByteSize()), expected.size() / 2);
    EXPECT_EQ(encodedHex(partlyParsed<Singles>(expected)), expected);
    EXPECT_EQ(Singles::kFLastFieldNumber, 536870911);
}

TEST(EveryKind, ListsAreWrittenAsDeclaredAndReadInBothForms) {
    Lists message;
    message.add_unpacked(-1);
    message.add_packed(1);
    message.add_packed(-300);
    message.add_packed_fixed(7);
    message.add_unpacked_double(1);
    message.add_colours(COLOUR_ROUGE);
    message.add_packed_colours(COLOUR_LARGE);
    message.add_flags(true);
    message.add_blobs("x");
    const std::string expected =
        "0801"
        "120302d704"
        "1a0407000000"
        "21000000000000f03f"
        "2801"
        "3205ffffffff07"
        "3801"
        "420178";
    EXPECT_EQ(encodedHex(message), expected);
    EXPECT_EQ(encodedHex(partlyParsed<Lists>("0a0101"
                                             "1002"
                                             "10d704"
                                             "1d07000000"
                                             "2208000000000000f03f"
                                             "2a0101"
                                             "30ffffffff07"
                                             "3a0101"
                                             "420178")),
              expected);
}

TEST(EveryKind, EmptyPackedListIsNotWritten) {
    EXPECT_EQ(encodedHex(Lists()), "");
}

TEST(EveryKind, EnumNumbersInListsAreKeptOnlyWhenNamed) {
    const auto message = partlyParsed<Lists>(
        "2801"
        "2802"
        "2a03010203"
        "320401020101");
    EXPECT_THAT(message.colours(), ElementsAre(1, 1));
    EXPECT_THAT(message.packed_colours(), ElementsAre(1, 1, 1));
    EXPECT_FALSE(Colour_IsValid(0));
    EXPECT_TRUE(Colour_IsValid(-5));
    EXPECT_EQ(Colour_MIN, -5);
    EXPECT_EQ(Colour_MAX, 2147483647);
}

TEST(EveryKindDeathTest, EnumNumbersGivenToListsAreChecked) {
    Lists message;
    EXPECT_EXIT(message.add_colours(static_cast<Colour>(0)), testing::KilledBySignal(SIGABRT),
                R"(CHECK failed: qor::kevra::every::kind::Colour_IsValid\(value\): )");
    message.add_colours(COLOUR_RED);
    EXPECT_EXIT(message.set_colours(0, static_cast<Colour>(2)), testing::KilledBySignal(SIGABRT),
                R"(CHECK failed: qor::kevra::every::kind::Colour_IsValid\(value\): )");
}

TEST(EveryKind, RequiredFieldsOfElementsCount) {
    Lists message;
    EXPECT_TRUE(message.IsInitialized());
    Needy* const element = message.add_elements();
    EXPECT_FALSE(message.IsInitialized());
    element->set_name("a");
    EXPECT_TRUE(message.IsInitialized());
    element->mutable_next();
    EXPECT_FALSE(message.IsInitialized());
    element->mutable_next()->set_name("b");
    EXPECT_TRUE(message.IsInitialized());
}

// Returns a message with `depth` messages below it, each of which holds the next.
std::string nested(int depth) {
    std::string bytes;
    for (int level = 0; level < depth; ++level) {
        std::string outer("\x12");
        std::size_t length = bytes.size();
        for (; length >= 0x80; length >>= 7) {
            outer.push_back(static_cast<char>(length | 0x80));
        }
        outer.push_back(static_cast<char>(length));
        bytes = outer.append(bytes);
    }
    return bytes;
}

TEST(EveryKind, MessagesMayNestUpToTheLimit) {
    Needy message;
    EXPECT_TRUE(message.ParsePartialFromString(nested(64)));
    EXPECT_FALSE(message.ParsePartialFromString(nested(65)));
    EXPECT_FALSE(message.ParsePartialFromString(nested(10'000)));
}

}  // namespace
}  // namespace qv::tests
