// SPDX-License-Identifier: Apache-2.0

// Tests what the properties of strings (fuzz/CoreFoundation/StringProperties.h) and the measured
// strings do not show.

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
        char none = 'n';
        EXPECT_EQ(CFStringGetCString(ofText.get(), &none, -1, encoding), FALSE);
    }
    const auto ofUnits = own(CFStringCreateWithCharacters(kCFAllocatorDefault, nullptr, 0));
    ASSERT_TRUE(ofUnits);
    EXPECT_TRUE(equal(ofUnits.get(), CFSTR("")));
}

TEST(CFString, OtherEncodingsAreRefused) {
    for (const CFStringEncoding encoding : {0U, 0x0100U, 0x10000100U, 0x0A01U, 0xFFFFFFFFU}) {
        EXPECT_FALSE(decode("a", encoding)) << encoding;
        EXPECT_FALSE(own(CFStringCreateWithCString(kCFAllocatorDefault, "a", encoding)));
        EXPECT_EQ(encode(makeString("a").get(), 16, encoding), "refused");
        EXPECT_EQ(CFStringGetCStringPtr(makeString("\u00e9").get(), encoding), nullptr);
    }
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

TEST(CFString, EquivalentTextsOfOtherCharactersDiffer) {
    // The first is one composed character, and the second is decomposed.
    EXPECT_FALSE(equal(makeString("\u00e9").get(), makeString("e\u0301").get()));
    EXPECT_FALSE(equal(makeString("a").get(), makeString("A").get()));
    EXPECT_FALSE(equal(makeString("a").get(), makeString("a\0"s).get()));
}

TEST(CFString, ComparesByCodeUnits) {
    // The order of code points is another one.
    const std::u16string ascending[] = {u"",  u"B",      u"a",      u"a\0b"s,      u"a\0c"s, u"ab",
                                        u"b", u"\u00e9", u"\u4e2d", u"\U0001f600", u"\uff5e"};
    for (std::size_t index = 1; index < std::size(ascending); ++index) {
        const auto lesser = makeString(ascending[index - 1]);
        const auto greater = makeString(ascending[index]);
        EXPECT_EQ(CFStringCompare(lesser.get(), greater.get(), 0), kCFCompareLessThan) << index;
        EXPECT_EQ(CFStringCompare(greater.get(), lesser.get(), 0), kCFCompareGreaterThan) << index;
    }
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
