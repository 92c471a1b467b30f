#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

using namespace std::string_literals;

constexpr CFStringEncoding kEncodings[] = {kCFStringEncodingUTF8, kCFStringEncodingASCII,
                                           kCFStringEncodingISOLatin1};

Owned<CFStringRef> decode(const std::string& bytes, CFStringEncoding encoding) {
    return own(CFStringCreateWithBytes(kCFAllocatorDefault,
                                       reinterpret_cast<const UInt8*>(bytes.data()),
                                       static_cast<CFIndex>(bytes.size()), encoding, FALSE));
}

// Returns the string in an encoding, written into a buffer of `size` bytes, or "refused".
std::string encode(CFStringRef string, CFIndex size, CFStringEncoding encoding) {
    std::vector<char> buffer(static_cast<std::size_t>(size) + 1, '\x7f');
    if (CFStringGetCString(string, buffer.data(), size, encoding) == FALSE) {
        return "refused";
    }
    EXPECT_EQ(buffer.back(), '\x7f') << "a byte behind the buffer was written";
    return buffer.data();
}

TEST(CFString, IsASequenceOfCodeUnits) {
    const auto string = makeString("a\u00e9\u4e2d\U0001f600z");
    EXPECT_EQ(CFStringGetLength(string.get()), 6);
    EXPECT_EQ(unitsOf(string.get()), u"a\u00e9\u4e2d\U0001f600z");
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.get(), 3), 0xd83d);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.get(), 4), 0xde00);
}

TEST(CFString, MayBeEmpty) {
    for (const CFStringEncoding encoding : kEncodings) {
        const auto ofText = own(CFStringCreateWithCString(kCFAllocatorDefault, "", encoding));
        const auto ofBytes =
            own(CFStringCreateWithBytes(kCFAllocatorDefault, nullptr, 0, encoding, FALSE));
        ASSERT_TRUE(ofText);
        ASSERT_TRUE(ofBytes);
        EXPECT_EQ(CFStringGetLength(ofText.get()), 0);
        EXPECT_TRUE(equal(ofText.get(), ofBytes.get()));
        EXPECT_STREQ(CFStringGetCStringPtr(ofBytes.get(), encoding), "");
        EXPECT_EQ(encode(ofText.get(), 1, encoding), "");
        EXPECT_EQ(encode(ofText.get(), 0, encoding), "refused");
    }
    const auto ofUnits = own(CFStringCreateWithCharacters(kCFAllocatorDefault, nullptr, 0));
    ASSERT_TRUE(ofUnits);
    EXPECT_TRUE(equal(ofUnits.get(), CFSTR("")));
}

TEST(CFString, MalformedUtf8IsRefused) {
    for (const char* const bytes :
         {"\x80", "a\xc3", "\xc0\x80", "\xc1\xbf", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xed\xbf\xbf",
          "\xe4\xb8", "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xf0\x9f\x98",
          "\xff", "\xfe", "\xf8\x88\x80\x80\x80", "\xe4z\xb8"}) {
        EXPECT_FALSE(makeString(bytes)) << bytes;
        EXPECT_FALSE(
            own(CFStringCreateWithCString(kCFAllocatorDefault, bytes, kCFStringEncodingUTF8)))
            << bytes;
    }
}

TEST(CFString, Latin1CopyrightSignIsReplacedInUtf8) {
    EXPECT_EQ(unitsOf(makeString("\xa9").get()), u"\ufffd");
    EXPECT_EQ(unitsOf(makeString("a\xa9\xa9"
                                 "b\u00e9")
                          .get()),
              u"a\ufffd\ufffdb\u00e9");
    EXPECT_EQ(unitsOf(makeString("\u00a9").get()), u"\u00a9");
    EXPECT_FALSE(makeString("\xa8"));
    EXPECT_FALSE(makeString("\xe4\xa9"));
    EXPECT_EQ(unitsOf(decode("\xa9", kCFStringEncodingISOLatin1).get()), u"\u00a9");
}

TEST(CFString, FirstAndLastCharactersOfEachUtf8LengthAreRead) {
    const auto string = makeString("\x7f\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010ffff");
    ASSERT_TRUE(string);
    EXPECT_EQ(unitsOf(string.get()),
              u"\u007f\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010ffff");
}

TEST(CFString, ByteOrderMarkAtTheStartIsLeftOut) {
    EXPECT_EQ(unitsOf(makeString("\ufeffa").get()), u"a");
    EXPECT_EQ(unitsOf(makeString("\ufeff").get()), u"");
    EXPECT_EQ(unitsOf(makeString("\ufeff\ufeffa").get()), u"\ufeffa");
    EXPECT_EQ(unitsOf(makeString("a\ufeff").get()), u"a\ufeff");
    // A string from code units keeps the mark.
    EXPECT_EQ(unitsOf(makeString(u"\ufeffa").get()), u"\ufeffa");
}

TEST(CFString, BytesOver127AreLatin1InTheOtherEncodings) {
    for (const CFStringEncoding encoding : {kCFStringEncodingASCII, kCFStringEncodingISOLatin1}) {
        EXPECT_EQ(unitsOf(decode("a\x80\xe9\xff", encoding).get()), u"a\u0080\u00e9\u00ff");
    }
}

TEST(CFString, OtherEncodingsAreRefused) {
    for (const CFStringEncoding encoding : {0U, 0x0100U, 0x10000100U, 0x0A01U, 0xFFFFFFFFU}) {
        EXPECT_FALSE(decode("a", encoding)) << encoding;
        EXPECT_FALSE(own(CFStringCreateWithCString(kCFAllocatorDefault, "a", encoding)));
        EXPECT_EQ(encode(makeString("a").get(), 16, encoding), "refused");
        EXPECT_EQ(CFStringGetCStringPtr(makeString("\u00e9").get(), encoding), nullptr);
    }
}

TEST(CFString, MayHoldANul) {
    const auto string = makeString("a\0b"s);
    EXPECT_EQ(CFStringGetLength(string.get()), 3);
    EXPECT_EQ(unitsOf(string.get()), u"a\0b"s);
    EXPECT_FALSE(equal(string.get(), CFSTR("a")));
    char buffer[4] = {};
    ASSERT_NE(CFStringGetCString(string.get(), buffer, 4, kCFStringEncodingUTF8), FALSE);
    EXPECT_EQ(std::memcmp(buffer, "a\0b", 4), 0);
    const char* const direct = CFStringGetCStringPtr(string.get(), kCFStringEncodingUTF8);
    ASSERT_NE(direct, nullptr);
    EXPECT_EQ(std::memcmp(direct, "a\0b", 4), 0);
    EXPECT_EQ(unitsOf(makeString(u"\0"s).get()), u"\0"s);
}

TEST(CFString, LoneSurrogateIsKeptAndCannotBeEncoded) {
    for (const auto& units : {u"a\xd800"s, u"\xdc00z"s, u"\xdc00\xd800"s, u"\xd800\xd800\xdc00"s}) {
        const auto string = makeString(units);
        ASSERT_TRUE(string);
        EXPECT_EQ(unitsOf(string.get()), units);
        for (const CFStringEncoding encoding : kEncodings) {
            EXPECT_EQ(encode(string.get(), 100, encoding), "refused");
            EXPECT_EQ(CFStringGetCStringPtr(string.get(), encoding), nullptr);
        }
    }
}

TEST(CFString, OnlyAsciiStringsReturnTheirOwnBytes) {
    for (const CFStringEncoding encoding : kEncodings) {
        EXPECT_STREQ(CFStringGetCStringPtr(makeString("plain text").get(), encoding), "plain text");
        EXPECT_STREQ(CFStringGetCStringPtr(makeString(u"of units").get(), encoding), "of units");
        EXPECT_STREQ(CFStringGetCStringPtr(CFSTR("constant"), encoding), "constant");
        EXPECT_EQ(CFStringGetCStringPtr(makeString("caf\u00e9").get(), encoding), nullptr);
        EXPECT_EQ(CFStringGetCStringPtr(makeString("\u0080").get(), encoding), nullptr);
        EXPECT_EQ(CFStringGetCStringPtr(makeString("\u4e2d").get(), encoding), nullptr);
    }
}

TEST(CFString, BufferMustHaveRoomForTheBytesAndTheNul) {
    struct {
        const char* text;
        CFStringEncoding encoding;
        CFIndex size;
    } const cases[] = {
        {"abc", kCFStringEncodingUTF8, 4},
        {"abc", kCFStringEncodingASCII, 4},
        {"abc", kCFStringEncodingISOLatin1, 4},
        {"caf\u00e9", kCFStringEncodingUTF8, 6},
        {"caf\u00e9", kCFStringEncodingISOLatin1, 5},
        {"\u4e2d\u6587", kCFStringEncodingUTF8, 7},
        {"\U0001f600", kCFStringEncodingUTF8, 5},
    };
    for (const auto& [text, encoding, size] : cases) {
        SCOPED_TRACE(text);
        const auto string = makeString(text);
        for (CFIndex room = -1; room < size; ++room) {
            std::vector<char> buffer(8);
            EXPECT_EQ(CFStringGetCString(string.get(), buffer.data(), room, encoding), FALSE);
        }
        EXPECT_NE(encode(string.get(), size, encoding), "refused");
        EXPECT_EQ(encode(string.get(), size, encoding), encode(string.get(), 100, encoding));
    }
}

TEST(CFString, EncodingMustHaveAllCharacters) {
    const auto latin = makeString("caf\u00e9\u00ff");
    EXPECT_EQ(encode(latin.get(), 100, kCFStringEncodingUTF8), "caf\u00e9\u00ff");
    EXPECT_EQ(encode(latin.get(), 100, kCFStringEncodingISOLatin1), "caf\xe9\xff");
    EXPECT_EQ(encode(latin.get(), 100, kCFStringEncodingASCII), "refused");
    const auto chinese = makeString("\u0100\u4e2d");
    EXPECT_EQ(encode(chinese.get(), 100, kCFStringEncodingISOLatin1), "refused");
}

TEST(CFString, IndexOutsideYieldsZero) {
    for (const auto& string : {makeString("abc"), makeString("\u4e2d\u4e2d\u4e2d")}) {
        EXPECT_EQ(CFStringGetCharacterAtIndex(string.get(), 3), 0);
        EXPECT_EQ(CFStringGetCharacterAtIndex(string.get(), -1), 0);
        EXPECT_EQ(CFStringGetCharacterAtIndex(string.get(), CFIndex(1) << 62), 0);
        EXPECT_NE(CFStringGetCharacterAtIndex(string.get(), 2), 0);
    }
}

TEST(CFString, PartOfARangeThatLiesInTheStringIsWritten) {
    constexpr UniChar kUntouched = 0x7777;
    const auto written = [](CFStringRef string, CFIndex location, CFIndex length) {
        std::u16string buffer(8, static_cast<char16_t>(kUntouched));
        CFStringGetCharacters(string, CFRangeMake(location, length),
                              reinterpret_cast<UniChar*>(buffer.data()));
        return buffer.substr(0, buffer.find(static_cast<char16_t>(kUntouched)));
    };
    for (const auto& text : {u"abcd"s, u"\u4e2d\u6587xy"s}) {
        const auto string = makeString(text);
        EXPECT_EQ(written(string.get(), 0, 4), text);
        EXPECT_EQ(written(string.get(), 1, 2), text.substr(1, 2));
        EXPECT_EQ(written(string.get(), 3, 5), text.substr(3));
        EXPECT_EQ(written(string.get(), 4, 1), u"");
        EXPECT_EQ(written(string.get(), 9, 1), u"");
        EXPECT_EQ(written(string.get(), 0, 0), u"");
        EXPECT_EQ(written(string.get(), 1, -1), u"");
        EXPECT_EQ(written(string.get(), -1, 2), u"");
    }
}

TEST(CFString, StringsFromBytesAndUnitsAreEqual) {
    for (const std::string& text : {"text"s, "caf\u00e9"s, ""s}) {
        const auto ofBytes = makeString(text);
        const auto ofUnits = makeString(unitsOf(ofBytes.get()));
        const auto ofText = own(
            CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
        EXPECT_TRUE(equal(ofBytes.get(), ofUnits.get()));
        EXPECT_TRUE(equal(ofUnits.get(), ofText.get()));
        EXPECT_EQ(CFHash(ofBytes.get()), CFHash(ofUnits.get()));
        EXPECT_EQ(CFHash(ofUnits.get()), CFHash(ofText.get()));
    }
    EXPECT_TRUE(equal(makeString("text").get(), CFSTR("text")));
    EXPECT_EQ(CFHash(makeString("text").get()), CFHash(CFSTR("text")));
}

TEST(CFString, EquivalentTextsOfOtherCharactersDiffer) {
    // The first is one composed character, and the second is decomposed.
    EXPECT_FALSE(equal(makeString("\u00e9").get(), makeString("e\u0301").get()));
    EXPECT_FALSE(equal(makeString("a").get(), makeString("A").get()));
    EXPECT_FALSE(equal(makeString("a").get(), makeString("a\0"s).get()));
}

TEST(CFString, ComparesByCodeUnits) {
    const auto compare = [](const std::u16string& one, const std::u16string& other) {
        return CFStringCompare(makeString(one).get(), makeString(other).get(), 0);
    };
    EXPECT_EQ(compare(u"", u""), kCFCompareEqualTo);
    EXPECT_EQ(compare(u"", u"a"), kCFCompareLessThan);
    EXPECT_EQ(compare(u"a", u""), kCFCompareGreaterThan);
    EXPECT_EQ(compare(u"ab", u"b"), kCFCompareLessThan);
    EXPECT_EQ(compare(u"a", u"ab"), kCFCompareLessThan);
    EXPECT_EQ(compare(u"B", u"a"), kCFCompareLessThan);
    EXPECT_EQ(compare(u"b", u"\u00e9"), kCFCompareLessThan);
    EXPECT_EQ(compare(u"\u4e2d", u"b"), kCFCompareGreaterThan);
    EXPECT_EQ(compare(u"\u4e2d", u"\u4e2d"), kCFCompareEqualTo);
    // The second character has the larger code point.
    EXPECT_EQ(compare(u"\uff5e", u"\U0001f600"), kCFCompareGreaterThan);
    EXPECT_EQ(compare(u"a\0b"s, u"a\0c"s), kCFCompareLessThan);
}

TEST(CFString, EqualConstantTextsAreOneString) {
    EXPECT_EQ(CFSTR("services"), CFSTR("services"));
    std::string text = "serv";
    text += "ices";
    EXPECT_EQ(__CFStringMakeConstantString(text.c_str()), CFSTR("services"));
    EXPECT_NE(CFSTR("services"), CFSTR("service"));
    EXPECT_EQ(CFSTR(""), CFSTR(""));
    EXPECT_EQ(utf8Of(CFSTR("services")), "services");
}

TEST(CFString, ConstantMustBeAscii) {
    EXPECT_EQ(__CFStringMakeConstantString("caf\u00e9"), nullptr);
    EXPECT_EQ(__CFStringMakeConstantString("caf\u00e9"), nullptr);
}

TEST(CFString, ConstantDoesNotReferToTheTextItWasCreatedFrom) {
    std::string text = "a text that changes";
    const CFStringRef constant = __CFStringMakeConstantString(text.c_str());
    text = "x text that changed";
    EXPECT_EQ(utf8Of(constant), "a text that changes");
}

TEST(CFString, ManyConstantsAreFoundByTheirTexts) {
    std::vector<CFStringRef> constants;
    constants.reserve(5000);
    for (int index = 0; index < 5000; ++index) {
        constants.push_back(
            __CFStringMakeConstantString(("constant " + std::to_string(index)).c_str()));
    }
    for (int index = 0; index < 5000; ++index) {
        const std::string text = "constant " + std::to_string(index);
        EXPECT_EQ(utf8Of(constants[static_cast<std::size_t>(index)]), text);
        EXPECT_EQ(__CFStringMakeConstantString(text.c_str()),
                  constants[static_cast<std::size_t>(index)]);
    }
}

TEST(CFString, HoldsTextsOfAnyLength) {
    for (const std::size_t length : {1U, 7U, 8U, 15U, 16U, 31U, 32U, 63U, 64U, 1000U, 100000U}) {
        const std::string ascii(length, 'x');
        EXPECT_EQ(utf8Of(makeString(ascii).get()), ascii);
        const std::u16string wide(length, u'\u4e2d');
        EXPECT_EQ(unitsOf(makeString(wide).get()), wide);
    }
}

TEST(CFString, NegativeLengthIsRefused) {
    const UInt8 bytes[] = {'a'};
    const UniChar units[] = {'a'};
    EXPECT_EQ(CFStringCreateWithBytes(kCFAllocatorDefault, bytes, -1, kCFStringEncodingUTF8, FALSE),
              nullptr);
    EXPECT_EQ(CFStringCreateWithCharacters(kCFAllocatorDefault, units, -1), nullptr);
}

TEST(CFString, NullTextIsRefused) {
    for (const CFStringEncoding encoding : kEncodings) {
        EXPECT_EQ(CFStringCreateWithCString(kCFAllocatorDefault, nullptr, encoding), nullptr);
        EXPECT_EQ(CFStringCreateWithBytes(kCFAllocatorDefault, nullptr, 1, encoding, FALSE),
                  nullptr);
    }
    EXPECT_EQ(CFStringCreateWithCharacters(kCFAllocatorDefault, nullptr, 1), nullptr);
}

}  // namespace
}  // namespace qv::tests
