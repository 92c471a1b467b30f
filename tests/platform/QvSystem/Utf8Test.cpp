// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/Utf8.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace qv::system {
namespace {

// Returns the UTF-8 of a code point by the definition, without checks.
std::string encoded(std::uint32_t codePoint) {
    const auto byte = [](std::uint32_t value) { return static_cast<char>(value); };
    if (codePoint < 0x80) {
        return {byte(codePoint)};
    }
    if (codePoint < 0x800) {
        return {byte(0xC0 | codePoint >> 6), byte(0x80 | (codePoint & 0x3F))};
    }
    if (codePoint < 0x10000) {
        return {byte(0xE0 | codePoint >> 12), byte(0x80 | (codePoint >> 6 & 0x3F)),
                byte(0x80 | (codePoint & 0x3F))};
    }
    return {byte(0xF0 | codePoint >> 18), byte(0x80 | (codePoint >> 12 & 0x3F)),
            byte(0x80 | (codePoint >> 6 & 0x3F)), byte(0x80 | (codePoint & 0x3F))};
}

TEST(FirstCharacter, IsEveryCodePointButASurrogate) {
    for (std::uint32_t codePoint = 0; codePoint <= 0x10FFFF; ++codePoint) {
        const std::string bytes = encoded(codePoint);
        const Utf8Character character = firstCharacter(bytes + "x");
        const bool isSurrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
        ASSERT_EQ(character.isWellFormed, !isSurrogate) << codePoint;
        if (!isSurrogate) {
            ASSERT_EQ(character.codePoint, codePoint);
            ASSERT_EQ(character.length, bytes.size());
        }
    }
}

TEST(FirstCharacter, IsIllFormedUpToTheFirstByteThatCannotContinueIt) {
    const std::pair<const char*, std::size_t> cases[] = {
        {"\x80", 1},
        {"\xBF\x80", 1},
        {"\xC0\xAF", 1},
        {"\xC1\xBF", 1},
        {"\xC3", 1},
        {"\xC3x", 1},
        {"\xE0\x9F\xBF", 1},
        {"\xE2\x82", 2},
        {"\xE2\x82x", 2},
        {"\xED\xA0\x80", 1},
        {"\xF0\x8F\xBF\xBF", 1},
        {"\xF0\x9F\x98", 3},
        {"\xF0\x9F\x98x", 3},
        {"\xF4\x90\x80\x80", 1},
        {"\xF5\x80\x80\x80", 1},
        {"\xFF", 1},
    };
    for (const auto& [bytes, length] : cases) {
        const Utf8Character character = firstCharacter(bytes);
        EXPECT_FALSE(character.isWellFormed) << bytes;
        EXPECT_EQ(character.length, length) << bytes;
    }
}

TEST(IsUtf8, HoldsForWellFormedTextOnly) {
    EXPECT_TRUE(isUtf8(""));
    EXPECT_TRUE(isUtf8("a\xC3\xA9\xF0\x9F\x98\x80"));
    EXPECT_TRUE(isUtf8(std::string_view("\0", 1)));
    for (const char* bytes : {"\xFF", "\xC3", "\xED\xA0\x80", "a\x80", "\xF0\x9F\x98"}) {
        EXPECT_FALSE(isUtf8(bytes)) << bytes;
    }
}

TEST(WithReplacements, ReplacesEachIllFormedCharacterOnce) {
    EXPECT_EQ(withReplacements("a\xC3\xA9"), "a\xC3\xA9");
    EXPECT_EQ(withReplacements("a\xFF\xFE"), "a\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(withReplacements("\xF0\x9F\x98x"), "\xEF\xBF\xBDx");
    EXPECT_EQ(withReplacements(""), "");
}

TEST(WholeCharacters, LeavesOutTheBeginningOfACharacterAtTheEnd) {
    EXPECT_EQ(wholeCharacters("a\xF0\x9F\x98"), "a");
    EXPECT_EQ(wholeCharacters("a\xE2\x82"), "a");
    EXPECT_EQ(wholeCharacters("a\xC3"), "a");
}

TEST(WholeCharacters, LeavesAnyOtherEndAsItIs) {
    for (const char* text :
         {"", "a", "a\xC3\xA9", "a\xF0\x9F\x98\x80", "\xFF", "\x80\x80\x80\x80"}) {
        EXPECT_EQ(wholeCharacters(text), text);
    }
}

}  // namespace
}  // namespace qv::system
