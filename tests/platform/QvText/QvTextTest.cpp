// SPDX-License-Identifier: Apache-2.0

#include "QvText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iconv.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace {

using qv::text::appendEscaped;
using qv::text::escaped;
using qv::text::printable;
using namespace std::string_view_literals;

TEST(EscapedText, PrintableTextIsUnchanged) {
    EXPECT_EQ(escaped(""), "");
    EXPECT_EQ(escaped("qor.kevra: 10% of [them] ~ \"all\""), "qor.kevra: 10% of [them] ~ \"all\"");
}

TEST(EscapedText, BackslashIsDoubled) {
    EXPECT_EQ(escaped("a\\nb"), "a\\\\nb");
    EXPECT_EQ(escaped("a\\\nb"), "a\\\\\\nb");
    EXPECT_EQ(escaped("\\"), "\\\\");
}

TEST(EscapedText, LineAndTabControlsBecomeLetters) {
    EXPECT_EQ(escaped("a\nb\rc\td"), "a\\nb\\rc\\td");
}

TEST(EscapedText, EveryOtherControlBecomesTwoLowerCaseHexDigits) {
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

TEST(EscapedText, CharactersThatChangeTheDirectionAreEscaped) {
    const std::string rightToLeft = std::string("\xe2\x80") + '\xae';
    EXPECT_EQ(escaped("a" + rightToLeft + "gnp.exe"), "a\\xe2\\x80\\xaegnp.exe");
    EXPECT_EQ(escaped("\u2066a\u2069"), "\\xe2\\x81\\xa6a\\xe2\\x81\\xa9");
}

TEST(EscapedText, IncompleteSequencesAreEscapedButNotTheBytesBehindThem) {
    EXPECT_EQ(escaped("\xe2\x82"), "\\xe2\\x82");
    EXPECT_EQ(escaped("\xf0\x9f\x98"), "\\xf0\\x9f\\x98");
    EXPECT_EQ(escaped("\xc3"), "\\xc3");
    EXPECT_EQ(escaped("\xe2(\xe2\x82("), "\\xe2(\\xe2\\x82(");
    EXPECT_EQ(escaped("\xe2\n\xc3\u00e9"), "\\xe2\\n\\xc3\u00e9");
}

TEST(EscapedText, IsAppended) {
    std::string out = "address: ";
    appendEscaped(out, "tcp\n");
    appendEscaped(out, "!");
    EXPECT_EQ(out, "address: tcp\\n!");
}

struct Range {
    char32_t first;
    char32_t last;
};

// The unprintable characters, by the reasons of Unicode.
constexpr Range kUnprintable[] = {
    // These are controls and separators of lines and paragraphs.
    {0x00, 0x1f},
    {0x7f, 0x9f},
    {0x2028, 0x2029},
    // These change the direction.
    {0x61c, 0x61c},
    {0x200e, 0x200f},
    {0x202a, 0x202e},
    {0x2066, 0x2069},
    // These join, break, annotate or arrange their neighbours.
    {0xad, 0xad},
    {0x34f, 0x34f},
    {0x180e, 0x180e},
    {0x200b, 0x200d},
    {0x2060, 0x2065},
    {0x206a, 0x206f},
    {0xfeff, 0xfeff},
    {0xfff0, 0xfffb},
    {0x13430, 0x1343f},
    {0x1bca0, 0x1bca3},
    {0x1d173, 0x1d17a},
    // These are letters without a glyph.
    {0x115f, 0x1160},
    {0x17b4, 0x17b5},
    {0x3164, 0x3164},
    {0xffa0, 0xffa0},
    // These are selectors of a variant, and tags.
    {0x180b, 0x180d},
    {0x180f, 0x180f},
    {0xfe00, 0xfe0f},
    {0xe0000, 0xe0fff},
    // These are not characters.
    {0xfdd0, 0xfdef},
};

bool isPrintable(char32_t character) {
    return (character & 0xfffe) != 0xfffe &&
           std::none_of(std::begin(kUnprintable), std::end(kUnprintable), [&](const Range& range) {
               return range.first <= character && character <= range.last;
           });
}

std::string utf8(char32_t character) {
    std::string bytes;
    const auto add = [&bytes](char32_t byte) { bytes += static_cast<char>(byte); };
    if (character < 0x80) {
        add(character);
    } else if (character < 0x800) {
        add(0xc0 | character >> 6);
    } else if (character < 0x10000) {
        add(0xe0 | character >> 12);
        add(0x80 | (character >> 6 & 0x3f));
    } else {
        add(0xf0 | character >> 18);
        add(0x80 | (character >> 12 & 0x3f));
        add(0x80 | (character >> 6 & 0x3f));
    }
    if (character >= 0x80) {
        add(0x80 | (character & 0x3f));
    }
    return bytes;
}

// Decodes UTF-8 with the C library. Returns nothing if the text is not well-formed.
class Decoder {
  public:
    Decoder() : converter_(::iconv_open("UTF-32LE", "UTF-8")) {}
    ~Decoder() { ::iconv_close(converter_); }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    std::optional<std::u32string> operator()(std::string text) const {
        std::u32string characters(text.size(), U'\0');
        char* in = text.data();
        std::size_t inLeft = text.size();
        char* out = reinterpret_cast<char*>(characters.data());
        std::size_t outLeft = characters.size() * sizeof(char32_t);
        ::iconv(converter_, nullptr, nullptr, nullptr, nullptr);
        if (::iconv(converter_, &in, &inLeft, &out, &outLeft) == static_cast<std::size_t>(-1)) {
            return std::nullopt;
        }
        characters.resize(characters.size() - outLeft / sizeof(char32_t));
        return characters;
    }

  private:
    iconv_t converter_;
};

// Returns the bytes of an escaped text. This is possible only if no two texts have the same escaped
// text.
std::string unescaped(std::string_view text) {
    std::string bytes;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] != '\\') {
            bytes += text[index];
            continue;
        }
        const char kind = text.at(++index);
        if (kind == 'x') {
            bytes +=
                static_cast<char>(std::stoi(std::string(text.substr(index + 1, 2)), nullptr, 16));
            index += 2;
        } else {
            bytes += kind == 'n' ? '\n' : kind == 'r' ? '\r' : kind == 't' ? '\t' : kind;
        }
    }
    return bytes;
}

// Returns the problem of an escaped text, or nothing if it is well-formed, printable and
// unambiguous.
std::string problemOf(const std::string& text) {
    static const Decoder decode;
    const std::string out = escaped(text);
    const auto characters = decode(out);
    if (!characters) {
        return "ill-formed: " + testing::PrintToString(text);
    }
    if (!std::all_of(characters->begin(), characters->end(), isPrintable)) {
        return "not printable: " + testing::PrintToString(text);
    }
    return unescaped(out) == text ? "" : "not the same: " + testing::PrintToString(text);
}

TEST(EveryText, OfOneCharacterIsUnchangedIfPrintable) {
    // The text of all characters since the last check is decoded at once, since decoding is slow.
    std::string texts;
    for (char32_t character = 0; character <= 0x10ffff; ++character) {
        if (character < 0xd800 || character > 0xdfff) {
            const std::string text = utf8(character);
            ASSERT_EQ(escaped(text) == text, isPrintable(character) && character != U'\\')
                << static_cast<unsigned>(character);
            texts += text;
        }
        if (character % 0x100 == 0xff) {
            ASSERT_EQ(problemOf(texts), "") << static_cast<unsigned>(character);
            texts.clear();
        }
    }
}

TEST(EveryText, OfOneOrTwoBytesIsPrintableAndUnambiguous) {
    for (int first = 0; first < 256; ++first) {
        const std::string one(1, static_cast<char>(first));
        ASSERT_EQ(problemOf(one), "");
        for (int second = 0; second < 256; ++second) {
            ASSERT_EQ(problemOf(one + static_cast<char>(second)), "");
        }
    }
}

// The bytes are those at the ends of the ranges of UTF-8 and of the escapes.
TEST(EveryText, OfThreeOrFourBytesIsPrintableAndUnambiguous) {
    const std::string bytes(
        "\0\n\x1b 1\\x\x7f\x80\x85\x8f\x90\x9f\xa0\xa8\xbf\xc0\xc2\xdf\xe0\xe2\xed\xef\xf0\xf4\xf5\xff"sv);
    for (const char first : bytes) {
        for (const char second : bytes) {
            for (const char third : bytes) {
                const std::string three{first, second, third};
                ASSERT_EQ(problemOf(three), "");
                if (static_cast<unsigned char>(first) < 0xf0) {
                    continue;
                }
                for (const char fourth : bytes) {
                    ASSERT_EQ(problemOf(three + fourth), "");
                }
            }
        }
    }
}

TEST(Printable, LeavesWhatIsEscapedAsItIs) {
    EXPECT_EQ(printable("a\n\\n\x1b\\x1b \xff\\"), "a\\n\\n\\x1b\\x1b \\xff\\");
    EXPECT_EQ(printable(printable("\\\x1b")), "\\\\x1b");
    EXPECT_EQ(printable(escaped("\\\x1b")), escaped("\\\x1b"));
    EXPECT_EQ(printable(""), "");
}

}  // namespace
