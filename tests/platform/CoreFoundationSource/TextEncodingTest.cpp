// SPDX-License-Identifier: Apache-2.0

#include "TextEncoding.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using namespace std::string_view_literals;

constexpr std::string_view kNotWellFormed = "text not well-formed in its encoding";

// Returns the text, or the reason if the bytes are refused.
std::string decoded(std::string_view bytes) {
    cf::DecodedText text;
    const char* reason = nullptr;
    if (!cf::decodeText(bytes, text, &reason)) {
        return reason;
    }
    EXPECT_EQ(reason, nullptr);
    return std::string(text.utf8);
}

// Returns the text in UTF-16, or the reason if the bytes are refused.
std::u16string unitsOf(std::string_view bytes) {
    cf::DecodedText text;
    const char* reason = nullptr;
    if (!cf::decodeText(bytes, text, &reason) || !cf::provideUnits(text, &reason)) {
        return {reason, reason + std::string_view(reason).size()};
    }
    return {text.units.data(), text.units.data() + text.units.size()};
}

std::string declaration(std::string_view encoding) {
    return "<?xml version=\"1.0\" encoding=\"" + std::string(encoding) + "\"?>";
}

// Returns the text of the bytes behind a declaration, or the reason if they are refused.
std::string decodedAs(std::string_view encoding, std::string_view bytes) {
    const std::string start = declaration(encoding);
    std::string text = decoded(start + std::string(bytes));
    return text.compare(0, start.size(), start) == 0 ? text.substr(start.size()) : text;
}

TEST(TextEncoding, BytesWithoutMarkOrDeclarationAreUtf8AndUnchecked) {
    for (const auto bytes : {""sv, "a"sv, "ab"sv, "{ a = b; }"sv, "\u20ac"sv, "\xff\x80 text"sv}) {
        cf::DecodedText text;
        const char* reason = nullptr;
        ASSERT_TRUE(cf::decodeText(bytes, text, &reason));
        EXPECT_EQ(text.utf8, bytes);
        EXPECT_EQ(text.utf8.data(), bytes.data());
    }
}

TEST(TextEncoding, Utf8MarkIsLeftOut) {
    EXPECT_EQ(decoded("\xEF\xBB\xBFz"), "z");
    EXPECT_EQ(decoded("\xEF\xBB\xBF\xEF\xBB\xBFz"), "\uFEFFz");
    // A mark without a text is a text.
    EXPECT_EQ(decoded("\xEF\xBB\xBF"), "\uFEFF");
    // The mark has precedence over the declaration.
    const std::string start = declaration("ISO-8859-1");
    EXPECT_EQ(decoded("\xEF\xBB\xBF" + start + "\u00e9"), start + "\u00e9");
}

TEST(TextEncoding, Utf16MarkDecidesTheByteOrder) {
    EXPECT_EQ(decoded("\xFE\xFF\0a\x20\xAC\xD8\x3D\xDE\x00"sv), "a\u20ac\U0001f600");
    EXPECT_EQ(decoded("\xFF\xFE\x61\0\xAC\x20\x3D\xD8\x00\xDE"sv), "a\u20ac\U0001f600");
    EXPECT_EQ(decoded("\xFE\xFF\xD8\0\xDC\0\xDB\xFF\xDF\xFF"sv), "\U00010000\U0010ffff");
    EXPECT_EQ(decoded("\xFE\xFF\xFE\xFF\0a"sv), "\uFEFFa");
    EXPECT_EQ(decoded("\xFE\xFF\0\0"sv), "\0"sv);
}

TEST(TextEncoding, NulAtTheStartMeansLittleEndianAndTheFirstCharacterIsDropped) {
    EXPECT_EQ(decoded("<\0a\0b\0"sv), "ab");
    EXPECT_EQ(decoded("\0<a\0b\0"sv), "ab");
    EXPECT_EQ(decoded("\0<\0a"sv), "\u6100");
    EXPECT_EQ(decoded("\0\0a"sv), "");
    EXPECT_EQ(decoded("a\0"sv), "a\0"sv);
    EXPECT_EQ(decoded("\0"sv), "\0"sv);
    EXPECT_EQ(decoded("ab\0"sv), "ab\0"sv);
}

TEST(TextEncoding, HalfOfTheLastUnitIsDropped) {
    EXPECT_EQ(decoded("\xFE\xFF\0ab"sv), "a");
    EXPECT_EQ(decoded("\xFE\xFF\0"sv), "");
    EXPECT_EQ(decoded("\xFF\xFE\0\0a\0\0\0b"sv), "a");
    EXPECT_EQ(decoded("\xFF\xFE\0\0a\0\0\0b\0"sv), "a");
    EXPECT_EQ(decoded("\xFF\xFE\0\0a\0\0\0b\0\0"sv), "a");
}

TEST(TextEncoding, Utf8EndsAtTheFirstLoneSurrogateOfUtf16) {
    EXPECT_EQ(decoded("\xFE\xFF\xD8\0"sv), "");
    EXPECT_EQ(decoded("\xFE\xFF\0a\xD8\0\xDC"sv), "a");
    EXPECT_EQ(decoded("\xFE\xFF\0a\xD8\0\0b"sv), "a");
    EXPECT_EQ(decoded("\xFE\xFF\0a\xD8\0\xD8\0\xDC\0"sv), "a");
    EXPECT_EQ(decoded("\xFE\xFF\xD8\0\xDC\0\xDC\0"sv), "\U00010000");
    EXPECT_EQ(decoded("\xFF\xFE\0\xD8"sv), "");
}

TEST(TextEncoding, UnitsOfUtf16HoldEveryLoneSurrogate) {
    const std::u16string high(1, u'\xD800');
    const std::u16string low(1, u'\xDC00');
    EXPECT_EQ(unitsOf("\xFE\xFF\xD8\0"sv), high);
    EXPECT_EQ(unitsOf("\xFE\xFF\0a\xD8\0\0b\xDC\0"sv), u"a" + high + u"b" + low);
    EXPECT_EQ(unitsOf("\xFF\xFE\0\xDC\0\xD8"sv), low + high);
    EXPECT_EQ(unitsOf("\xFE\xFF\xD8\x3D\xDE\0"sv), u"\U0001f600");
}

TEST(TextEncoding, UnitsOfOtherEncodingsAreDecodedFromUtf8) {
    EXPECT_EQ(unitsOf("a\u20ac\U0001f600"), u"a\u20ac\U0001f600");
    EXPECT_EQ(unitsOf("<?xml encoding='l1'\xe9"), u"<?xml encoding='l1'\u00e9");
    EXPECT_EQ(unitsOf("\xed\xa0\x80"), u"text that is not well-formed UTF-8");
}

TEST(TextEncoding, Utf32MarkDecidesTheByteOrder) {
    EXPECT_EQ(decoded("\0\0\xFE\xFF\0\0\0a\0\x01\xF6\0"sv), "a\U0001f600");
    EXPECT_EQ(decoded("\xFF\xFE\0\0a\0\0\0\0\xF6\x01\0"sv), "a\U0001f600");
    EXPECT_EQ(decoded("\0\0\xFE\xFF\0\x10\xFF\xFF"sv), "\U0010ffff");
    EXPECT_EQ(decoded("\0\0\xFE\xFF\0\0\xFE\xFF"sv), "\uFEFF");
    EXPECT_EQ(decoded("\0\0\xFE\xFF\0\x11\0\0"sv), kNotWellFormed);
    EXPECT_EQ(decoded("\0\0\xFE\xFF\xFF\xFF\xFF\xFF"sv), kNotWellFormed);
    EXPECT_EQ(decoded("\0\0\xFE\xFF\0\0\xD8\0"sv), kNotWellFormed);
    EXPECT_EQ(decoded("\0\0\xFE\xFF\0\0\xDF\xFF"sv), kNotWellFormed);
}

TEST(TextEncoding, Utf32MarkAloneIsUtf16) {
    EXPECT_EQ(decoded("\xFF\xFE\0\0"sv), "\0"sv);
    EXPECT_EQ(decoded("\0\0\xFE\xFF"sv), "\uFFFE");
}

TEST(TextEncoding, DeclaredUtf8IsUnchecked) {
    EXPECT_EQ(decodedAs("utf-8", "\xff"), "\xff");
    EXPECT_EQ(decodedAs("UTF-8", "\xff"), "\xff");
}

TEST(TextEncoding, Latin1IsDecoded) {
    std::string bytes;
    std::string text;
    for (unsigned byte = 0; byte < 0x100; ++byte) {
        bytes += static_cast<char>(byte);
        text += byte < 0x80 ? std::string(1, static_cast<char>(byte))
                            : std::string{static_cast<char>(0xC0U | byte >> 6U),
                                          static_cast<char>(0x80U | (byte & 0x3FU))};
    }
    for (const auto name : {"ISO-8859-1", "iso-8859-1", "latin1", "l1", "ISO_8859-1:1987", "cp819",
                            "US-ASCII", "us-ascii", "ascii", "ANSI_X3.4-1968", "csASCII"}) {
        EXPECT_EQ(decodedAs(name, bytes), text) << name;
    }
}

TEST(TextEncoding, DeclarationItselfIsDecoded) {
    EXPECT_EQ(decoded("<?xml x='\xe9' encoding='latin1'"), "<?xml x='\u00e9' encoding='latin1'");
}

TEST(TextEncoding, MalformedDeclarationIsIgnored) {
    for (const auto bytes : {
             "<?xml"sv,
             "<?xml\xe9"sv,
             "<?xml encoding="sv,
             "<?xml encoding='"sv,
             "<?xml encoding='latin1"sv,
             "<?xml encoding='latin1\" \xe9"sv,
             "<?xml encoding=latin1 \xe9"sv,
             "<?xml encoding= 'latin1' \xe9"sv,
             "<?xml encoding ='latin1' \xe9"sv,
             "<?xml ENCODING='latin1' \xe9"sv,
             "<?xml ? encoding='latin1' \xe9"sv,
             "<?xml > encoding='latin1' \xe9"sv,
             " <?xml encoding='latin1' \xe9"sv,
             "<?XML encoding='latin1' \xe9"sv,
         }) {
        EXPECT_EQ(decoded(bytes), bytes);
    }
}

TEST(TextEncoding, EncodingNeedNotBeSeparatedInTheDeclaration) {
    EXPECT_EQ(decoded("<?xmlencoding='l1'\xe9"), "<?xmlencoding='l1'\u00e9");
    EXPECT_EQ(decoded("<?xml-encoding=\"l1\"\xe9"), "<?xml-encoding=\"l1\"\u00e9");
    EXPECT_EQ(decoded("<?xml encodencoding='l1'\xe9"), "<?xml encodencoding='l1'\u00e9");
    EXPECT_EQ(decoded("<?xml encoding='l1'"), "<?xml encoding='l1'");
}

TEST(TextEncoding, DeclaredWideEncodingIsRefused) {
    for (const auto name : {"UTF-16", "utf-16", "UTF-16LE", "UTF-16BE", "UTF-32", "UTF-32LE",
                            "UTF-32BE", "ISO-10646-UCS-2", "ISO-10646-UCS-4", "UCS-4"}) {
        EXPECT_EQ(decodedAs(name, "abc"), kNotWellFormed) << name;
    }
}

struct Example {
    const char* name;
    std::string_view bytes;
    std::string_view text;
};

TEST(TextEncoding, DeclaredCharacterSetsAreDecoded) {
    constexpr Example kExamples[] = {
        {"ISO-8859-2", "\xb1\xea", "ąę"},
        {"latin2", "\xb1\xea", "ąę"},
        {"ISO-8859-3", "\xa6", "Ĥ"},
        {"ISO-8859-4", "\xbd", "Ŋ"},
        {"ISO-8859-5", "\xb6", "Ж"},
        {"ISO-8859-6", "\xc7", "\u0627"},
        {"ISO-8859-7", "\xe1", "α"},
        {"ISO-8859-8", "\xe0", "\u05d0"},
        {"ISO-8859-9", "\xfe", "ş"},
        {"ISO-8859-10", "\xbf", "ŋ"},
        {"ISO-8859-11", "\xa1", "\u0e01"},
        {"ISO-8859-13", "\xf8", "ų"},
        {"ISO-8859-14", "\xaf", "Ÿ"},
        {"ISO-8859-15", "\xa4", "€"},
        {"ISO-8859-16", "\xa4", "€"},
        {"windows-1250", "\x8a", "Š"},
        {"windows-1251", "\xc6", "Ж"},
        {"Windows-1252", "\x80\x92", "€\u2019"},
        {"cp1252", "\x80", "€"},
        {"windows-1253", "\xe1", "α"},
        {"windows-1254", "\xfe", "ş"},
        {"windows-1255", "\xe0", "\u05d0"},
        {"windows-1256", "\xc7", "\u0627"},
        {"windows-1257", "\xf8", "ų"},
        {"windows-1258", "\xd0", "Đ"},
        {"windows-874", "\xa1", "\u0e01"},
        {"IBM437", "\xe1", "ß"},
        {"850", "\xe1", "ß"},
        {"cp852", "\xa5", "ą"},
        {"cp866", "\x86", "Ж"},
        {"KOI8-R", "\xf6", "Ж"},
        {"koi8-u", "\xa4", "є"},
        {"TIS-620", "\xa1", "\u0e01"},
        {"Shift_JIS", "\x93\xfa\x96\x7b\xb1\\~", "日本\uff71\\~"},
        {"MS_Kanji", "\x93\xfa\x96\x7b", "日本"},
        {"Windows-31J", "\x93\xfa\x87\x40", "日①"},
        {"EUC-JP", "\xc6\xfc\xcb\xdc", "日本"},
        {"ISO-2022-JP", "\x1b$BF|K\\\x1b(B.", "日本."},
        {"GB2312", "\xd6\xd0", "中"},
        {"GBK", "\xd6\xd0\x81\x40", "中丂"},
        {"GB18030", "\xd6\xd0\x90\x30\x81\x30", "中\U00010000"},
        {"Big5", "\xa4\xa4", "中"},
        {"Big5-HKSCS", "\xa4\xa4\x88\x62\x88\x66", "中\u00ca\u0304\u00ca"},
        {"EUC-KR", "\xc7\xd1", "한"},
        {"KS_C_5601-1987", "\xc7\xd1", "한"},
        {"UTF-7", "+IKw-", "€"},
    };
    for (const auto& [name, bytes, text] : kExamples) {
        EXPECT_EQ(decodedAs(name, bytes), text) << name;
    }
}

TEST(TextEncoding, BytesOutsideOfTheDeclaredCharacterSetAreRefused) {
    EXPECT_EQ(decodedAs("ISO-8859-7", "\xff"), kNotWellFormed);
    EXPECT_EQ(decodedAs("EUC-JP", "\xc6\x20"), kNotWellFormed);
    EXPECT_EQ(decodedAs("GB2312", "\x81\x40"), kNotWellFormed);
    EXPECT_EQ(decodedAs("ISO-2022-JP", "\xff"), kNotWellFormed);
}

TEST(TextEncoding, IncompleteLastCharacterIsRefused) {
    EXPECT_EQ(decodedAs("Shift_JIS", "\x93"), kNotWellFormed);
    EXPECT_EQ(decodedAs("EUC-KR", "a\xc7"), kNotWellFormed);
    EXPECT_EQ(decodedAs("GB18030", "\x90\x30\x81"), kNotWellFormed);
    EXPECT_EQ(decodedAs("ISO-2022-JP", "\x1b$BF"), kNotWellFormed);
    EXPECT_EQ(decodedAs("ISO-2022-JP", "\x1b$"), kNotWellFormed);
}

// The converter holds such a character back, since a combining one may follow.
TEST(TextEncoding, LastCharacterThatTheConverterHoldsBackIsDecoded) {
    EXPECT_EQ(decodedAs("windows-1258", "e"), "e");
    EXPECT_EQ(decodedAs("Big5-HKSCS", "\x88\x66"), "\u00ca");
}

TEST(TextEncoding, LongTextIsDecoded) {
    std::string bytes;
    std::string text;
    for (int count = 0; count < 100000; ++count) {
        bytes += '\xa4';
        text += "€";
    }
    EXPECT_EQ(decodedAs("ISO-8859-15", bytes), text);
}

TEST(TextEncoding, ResultOfAnEarlierCallIsReplaced) {
    cf::DecodedText text;
    const char* reason = nullptr;
    ASSERT_TRUE(cf::decodeText("\xFE\xFF\0a\0b"sv, text, &reason));
    ASSERT_TRUE(cf::decodeText("\xFE\xFF\0c"sv, text, &reason));
    EXPECT_EQ(text.utf8, "c");
    ASSERT_TRUE(cf::decodeText("d", text, &reason));
    ASSERT_TRUE(cf::provideUnits(text, &reason));
    EXPECT_EQ(text.units.size(), 1U);
    EXPECT_EQ(text.units[0], 'd');
}

}  // namespace
