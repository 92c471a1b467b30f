// SPDX-License-Identifier: Apache-2.0

#include "NextStepLatin.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

using cf::nextStepLatinToUnicode;

std::u16string charactersOf(unsigned first, unsigned last) {
    std::u16string characters;
    for (unsigned byte = first; byte <= last; ++byte) {
        characters +=
            static_cast<char16_t>(nextStepLatinToUnicode(static_cast<unsigned char>(byte)));
    }
    return characters;
}

TEST(NextStepLatin, LowerHalfIsAscii) {
    for (unsigned byte = 0; byte < 0x80; ++byte) {
        EXPECT_EQ(nextStepLatinToUnicode(static_cast<unsigned char>(byte)), byte);
    }
}

TEST(NextStepLatin, UpperHalfHasTheseCharacters) {
    EXPECT_EQ(charactersOf(0x80, 0x8F), u"\u00a0ÀÁÂÃÄÅÇÈÉÊËÌÍÎÏ");
    EXPECT_EQ(charactersOf(0x90, 0x9F), u"ÐÑÒÓÔÕÖÙÚÛÜÝÞ\u00b5×÷");
    EXPECT_EQ(charactersOf(0xA0, 0xAF), u"©¡¢£\u2044¥ƒ§¤\u2019\u201c«\u2039\u203a\ufb01\ufb02");
    EXPECT_EQ(charactersOf(0xB0, 0xBF), u"®\u2013†‡\u00b7¦¶\u2022\u201a\u201e\u201d»…‰¬¿");
    EXPECT_EQ(charactersOf(0xC0, 0xCF),
              u"¹\u02cb\u00b4\u02c6\u02dc\u00af\u02d8\u02d9\u00a8²\u02da\u00b8³\u02dd\u02db\u02c7");
    EXPECT_EQ(charactersOf(0xD0, 0xDF), u"\u2014±¼½¾àáâãäåçèéêë");
    EXPECT_EQ(charactersOf(0xE0, 0xEF), u"ìÆíªîïðñŁØŒºòóôõ");
    EXPECT_EQ(charactersOf(0xF0, 0xFD), u"öæùúûıüýłøœßþÿ");
}

TEST(NextStepLatin, LastTwoBytesHaveNoCharacter) {
    EXPECT_EQ(nextStepLatinToUnicode(0xFE), 0);
    EXPECT_EQ(nextStepLatinToUnicode(0xFF), 0);
}

TEST(NextStepLatin, EachByteHasADifferentCharacter) {
    const std::u16string characters = charactersOf(0, 0xFD);
    EXPECT_EQ(std::set<char16_t>(characters.begin(), characters.end()).size(), characters.size());
}

}  // namespace
