#include "QvText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using qv::text::appendEscaped;
using qv::text::escaped;
using namespace std::string_view_literals;

TEST(EscapedText, PrintableTextStandsAsItIs) {
    EXPECT_EQ(escaped(""), "");
    EXPECT_EQ(escaped("qor.kevra: 10% of [them] ~ \"all\""), "qor.kevra: 10% of [them] ~ \"all\"");
}

TEST(EscapedText, BackslashStandsAsItIs) {
    EXPECT_EQ(escaped("a\\nb"), "a\\nb");
}

TEST(EscapedText, LineAndTabControlsHaveNames) {
    EXPECT_EQ(escaped("a\nb\rc\td"), "a\\nb\\rc\\td");
}

TEST(EscapedText, EveryOtherControlIsTwoLowerCaseHexDigits) {
    EXPECT_EQ(escaped("\x1b[2J\x7f\a\x0f"), "\\x1b[2J\\x7f\\x07\\x0f");
    EXPECT_EQ(escaped("a\0b"sv), "a\\x00b");
    for (char control = 0; control < 0x20; ++control) {
        EXPECT_EQ(escaped({&control, 1})[0], '\\') << static_cast<int>(control);
    }
}

TEST(EscapedText, C1ControlsAreEscapedByteByByte) {
    EXPECT_EQ(escaped("\u0080\u009b\u009f"), "\\xc2\\x80\\xc2\\x9b\\xc2\\x9f");
    EXPECT_EQ(escaped("\u00a0"), "\u00a0");
}

TEST(EscapedText, CharactersThatSeparateLinesOrTurnTheDirectionAreEscaped) {
    // The last bytes of U+200E and so on, and of their neighbours.
    const auto after = [](const char* prefix, int last) {
        return std::string(prefix) + static_cast<char>(last);
    };
    for (const int last : {0x8e, 0x8f, 0xa8, 0xa9, 0xaa, 0xae}) {
        EXPECT_THAT(escaped(after("\xe2\x80", last)), testing::StartsWith("\\xe2\\x80\\x"));
    }
    for (const int last : {0xa6, 0xa9}) {
        EXPECT_THAT(escaped(after("\xe2\x81", last)), testing::StartsWith("\\xe2\\x81\\x"));
    }
    for (const int last : {0x8d, 0x90, 0xa7, 0xaf}) {
        EXPECT_EQ(escaped(after("\xe2\x80", last)), after("\xe2\x80", last));
    }
    for (const int last : {0xa5, 0xaa}) {
        EXPECT_EQ(escaped(after("\xe2\x81", last)), after("\xe2\x81", last));
    }
}

TEST(EscapedText, WellFormedUtf8StandsAsItIs) {
    constexpr std::string_view text =
        "\u00e9 \u07ff \u0800 \u20ac \ud7ff \ue000 \uffff \U00010000 \U0001f600 \U0010ffff";
    EXPECT_EQ(escaped(text), text);
}

TEST(EscapedText, BytesOfNoSequenceAreEscaped) {
    EXPECT_EQ(escaped("a\x80z"), "a\\x80z");
    EXPECT_EQ(escaped("\xbf\xff\xfe"), "\\xbf\\xff\\xfe");
}

TEST(EscapedText, OverlongFormsAreEscaped) {
    EXPECT_EQ(escaped("\xc0\x8a"), "\\xc0\\x8a");
    EXPECT_EQ(escaped("\xc1\xbf"), "\\xc1\\xbf");
    EXPECT_EQ(escaped("\xe0\x9f\xbf"), "\\xe0\\x9f\\xbf");
    EXPECT_EQ(escaped("\xf0\x8f\xbf\xbf"), "\\xf0\\x8f\\xbf\\xbf");
}

TEST(EscapedText, SurrogatesAreEscaped) {
    EXPECT_EQ(escaped("\xed\xa0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(escaped("\xed\xbf\xbf"), "\\xed\\xbf\\xbf");
}

TEST(EscapedText, ValuesPastTheLastCharacterAreEscaped) {
    EXPECT_EQ(escaped("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
    EXPECT_EQ(escaped("\xf5\x80\x80\x80"), "\\xf5\\x80\\x80\\x80");
}

TEST(EscapedText, CutSequencesAreEscapedAndWhatFollowsStands) {
    EXPECT_EQ(escaped("\xe2\x82"), "\\xe2\\x82");
    EXPECT_EQ(escaped("\xf0\x9f\x98"), "\\xf0\\x9f\\x98");
    EXPECT_EQ(escaped("\xc3"), "\\xc3");
    EXPECT_EQ(escaped("\xe2(\xe2\x82("), "\\xe2(\\xe2\\x82(");
    EXPECT_EQ(escaped("\xe2\n\xc3\u00e9"), "\\xe2\\n\\xc3\u00e9");
}

TEST(EscapedText, IsAppendedToWhatIsThere) {
    std::string out = "address: ";
    appendEscaped(out, "tcp\n");
    appendEscaped(out, "!");
    EXPECT_EQ(out, "address: tcp\\n!");
}

}  // namespace
