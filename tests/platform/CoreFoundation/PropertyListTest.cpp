// SPDX-License-Identifier: Apache-2.0

// Shows the behaviour of reading, checking and writing that the measured documents do not show.

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/CoreFoundation/Documents.h"
#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

using namespace std::string_literals;

constexpr CFPropertyListFormat kFormats[] = {
    kCFPropertyListOpenStepFormat, kCFPropertyListXMLFormat_v1_0, kCFPropertyListBinaryFormat_v1_0};

// Returns the object itself, an array that holds it, and a dictionary that holds the array. Both
// containers also hold a valid string.
std::vector<Owned<>> wrapped(CFTypeRef object) {
    auto array = makeArray();
    CFArrayAppendValue(array.get(), CFSTR("valid"));
    CFArrayAppendValue(array.get(), object);
    auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), CFSTR("valid"), CFSTR("valid"));
    CFDictionarySetValue(dictionary.get(), CFSTR("key"), array.get());
    std::vector<Owned<>> objects;
    objects.push_back(own(CFRetain(object)));
    objects.push_back(own<CFTypeRef>(array.release()));
    objects.push_back(own<CFTypeRef>(dictionary.release()));
    return objects;
}

TEST(PropertyListValidity, NullAllocatorsAndErrorsAreNeitherValidNorWritten) {
    CFErrorRef error = nullptr;
    CFPropertyListCreateWithData(kCFAllocatorDefault, makeData("").get(), 0, nullptr, &error);
    const auto owner = own(error);
    for (const CFTypeRef leaf :
         {CFTypeRef(kCFNull), CFTypeRef(kCFAllocatorMalloc), CFTypeRef(error)}) {
        for (const auto& object : wrapped(leaf)) {
            for (const CFPropertyListFormat format : kFormats) {
                EXPECT_FALSE(isValid(object.get(), format)) << format;
            }
            EXPECT_FALSE(writeDocument(object.get()));
        }
    }
}

TEST(PropertyListValidity, KeysMustBeStrings) {
    for (const CFTypeRef key : {CFTypeRef(kCFBooleanTrue), CFTypeRef(makeInteger(1).release()),
                                CFTypeRef(makeData("key").release()), CFTypeRef(kCFNull)}) {
        const auto owner = own(key);
        const auto dictionary = makeDictionary();
        CFDictionarySetValue(dictionary.get(), CFSTR("key"), CFSTR("value"));
        CFDictionarySetValue(dictionary.get(), key, CFSTR("value"));
        for (const auto& object : wrapped(dictionary.get())) {
            for (const CFPropertyListFormat format : kFormats) {
                EXPECT_FALSE(isValid(object.get(), format));
            }
            EXPECT_FALSE(writeDocument(object.get()));
        }
    }
}

TEST(PropertyListValidity, NoTreeIsValidInAnUnknownFormat) {
    for (const int format : {0, 2, 99, 101, 201, -1}) {
        EXPECT_FALSE(isValid(CFSTR("text"), static_cast<CFPropertyListFormat>(format)));
    }
}

TEST(PropertyListValidity, NullPointerIsNotValid) {
    for (const CFPropertyListFormat format : kFormats) {
        EXPECT_FALSE(isValid(nullptr, format));
    }
}

TEST(PropertyListValidity, ContainerThatHoldsItselfIsNeitherValidNorWritten) {
    const auto dictionary = makeDictionary();
    const auto array = makeArray();
    CFArrayAppendValue(array.get(), dictionary.get());
    CFDictionarySetValue(dictionary.get(), CFSTR("self"), array.get());
    for (const CFTypeRef object : {CFTypeRef(array.get()), CFTypeRef(dictionary.get())}) {
        for (const CFPropertyListFormat format : kFormats) {
            EXPECT_FALSE(isValid(object, format));
        }
        EXPECT_FALSE(writeDocument(object));
    }
    CFDictionaryRemoveValue(dictionary.get(), CFSTR("self"));
    EXPECT_TRUE(isValid(array.get(), kCFPropertyListXMLFormat_v1_0));

    CFDictionarySetValue(dictionary.get(), CFSTR("self"), dictionary.get());
    EXPECT_FALSE(isValid(dictionary.get(), kCFPropertyListBinaryFormat_v1_0));
    EXPECT_FALSE(writeDocument(dictionary.get()));
    CFDictionaryRemoveAllValues(dictionary.get());
}

TEST(PropertyListValidity, TreeMayHoldAContainerTwice) {
    const auto inner = makeArray();
    CFArrayAppendValue(inner.get(), CFSTR("text"));
    const auto outer = makeArray();
    CFArrayAppendValue(outer.get(), inner.get());
    CFArrayAppendValue(outer.get(), inner.get());
    for (const CFPropertyListFormat format : kFormats) {
        EXPECT_TRUE(isValid(outer.get(), format));
    }
    const auto xml = writeDocument(outer.get());
    ASSERT_TRUE(xml);
    EXPECT_TRUE(equal(readDocument(*xml).get(), outer.get()));
}

TEST(PropertyListWriting, DocumentHasExactlyTheseBytes) {
    const auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), CFSTR("b"), kCFBooleanTrue);
    CFDictionarySetValue(dictionary.get(), CFSTR("a"), makeString("<&> \"caf\u00e9\"").get());
    const auto inner = makeArray();
    CFArrayAppendValue(inner.get(), makeInteger(-5).get());
    CFArrayAppendValue(inner.get(), makeReal(0.5).get());
    CFArrayAppendValue(inner.get(), makeDate(0).get());
    CFArrayAppendValue(inner.get(), makeData("abc").get());
    CFArrayAppendValue(inner.get(), makeDictionary().get());
    CFDictionarySetValue(dictionary.get(), CFSTR("B"), inner.get());
    EXPECT_EQ(writeDocument(dictionary.get()),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
              "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
              "<plist version=\"1.0\">\n"
              "<dict>\n"
              "\t<key>B</key>\n"
              "\t<array>\n"
              "\t\t<integer>-5</integer>\n"
              "\t\t<real>0.5</real>\n"
              "\t\t<date>2001-01-01T00:00:00Z</date>\n"
              "\t\t<data>\n"
              "\t\tYWJj\n"
              "\t\t</data>\n"
              "\t\t<dict/>\n"
              "\t</array>\n"
              "\t<key>a</key>\n"
              "\t<string>&lt;&amp;&gt; \"caf\u00e9\"</string>\n"
              "\t<key>b</key>\n"
              "\t<true/>\n"
              "</dict>\n"
              "</plist>\n");
}

// Returns the string that is read from the document of the string.
std::u16string writtenAndRead(const std::u16string& units) {
    const auto xml = writeDocument(makeString(units).get());
    const auto back = readDocument(xml.value_or(""));
    return back ? unitsOf(static_cast<CFStringRef>(back.get())) : u"none";
}

TEST(PropertyListWriting, LoneSurrogateIsLeftOutWithTheRestOfItsStretch) {
    EXPECT_EQ(writtenAndRead(u"a\xdc00"), u"a");
    EXPECT_EQ(writtenAndRead(u"\xd800"), u"");
    EXPECT_EQ(writtenAndRead(u"ab\xd800"
                             u"cd"),
              u"ab");
    EXPECT_EQ(writtenAndRead(u"ab\xd800"
                             u"cd&ef"),
              u"ab&ef");
    EXPECT_EQ(writtenAndRead(std::u16string(64, u'a') + u'\xd800'), std::u16string(64, u'a'));
}

// A stretch has at most 64 units. A pair that does not fit begins the next stretch.
TEST(PropertyListWriting, StretchOfALoneSurrogateHasAtMost64Units) {
    const auto letters = [](std::size_t count) { return std::u16string(count, u'a'); };
    EXPECT_EQ(writtenAndRead(u'\xd800' + letters(200)), letters(200 - 63));
    EXPECT_EQ(writtenAndRead(letters(100) + u'\xd800' + letters(200)), letters(100 + 200 - 27));
    EXPECT_EQ(writtenAndRead(u'\xd800' + letters(61) + u"\U0001f600" + letters(10)),
              u"\U0001f600" + letters(10));
}

TEST(PropertyListWriting, NullPointerIsNotWritten) {
    EXPECT_FALSE(own(CFPropertyListCreateXMLData(kCFAllocatorDefault, nullptr)));
}

TEST(PropertyListWriting, OnlyXmlIsWritten) {
    CFErrorRef error = nullptr;
    const auto xml = own(CFPropertyListCreateData(kCFAllocatorDefault, CFSTR("text"),
                                                  kCFPropertyListXMLFormat_v1_0, 0, &error));
    ASSERT_TRUE(xml);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(bytesOf(xml.get()), writeDocument(CFSTR("text")));
    for (const auto format : {kCFPropertyListOpenStepFormat, kCFPropertyListBinaryFormat_v1_0}) {
        CFErrorRef given = nullptr;
        EXPECT_FALSE(
            own(CFPropertyListCreateData(kCFAllocatorDefault, CFSTR("text"), format, 0, &given)));
        const auto reason = own(given);
        ASSERT_TRUE(reason);
        EXPECT_EQ(CFErrorGetCode(given), kCFPropertyListWriteStreamError);
    }
    EXPECT_FALSE(own(CFPropertyListCreateData(kCFAllocatorDefault, CFSTR("text"),
                                              kCFPropertyListBinaryFormat_v1_0, 0, nullptr)));
}

TEST(PropertyListWriting, FailureHasACodeAndADescription) {
    CFErrorRef given = nullptr;
    EXPECT_FALSE(own(CFPropertyListCreateData(kCFAllocatorDefault, kCFNull,
                                              kCFPropertyListXMLFormat_v1_0, 0, &given)));
    const auto error = own(given);
    ASSERT_TRUE(error);
    EXPECT_EQ(CFGetTypeID(given), CFErrorGetTypeID());
    EXPECT_EQ(CFErrorGetCode(given), kCFPropertyListWriteStreamError);
    const auto reason = own(CFErrorCopyDescription(given));
    ASSERT_TRUE(reason);
    EXPECT_GT(CFStringGetLength(reason.get()), 10);
}

// No reader accepts these documents. Each is refused for a different reason.
const std::string kRefused[] = {""s,          "<dict>"s,
                                "{ a = b }"s, "bplist00"s + std::string(40, '\0'),
                                "\xff"s,      "<?xml version=\"1.0\" encoding=\"none\"?><dict/>"s};

TEST(PropertyListReading, FailureHasAReason) {
    for (const std::string& document : kRefused) {
        CFStringRef given = nullptr;
        EXPECT_EQ(CFPropertyListCreateFromXMLData(kCFAllocatorDefault, makeData(document).get(), 1,
                                                  &given),
                  nullptr);
        const auto reason = own(given);
        ASSERT_TRUE(reason) << document;
        EXPECT_GT(CFStringGetLength(given), 10);
        EXPECT_TRUE(utf8Of(given)) << document;
        EXPECT_EQ(CFPropertyListCreateFromXMLData(kCFAllocatorDefault, makeData(document).get(), 1,
                                                  nullptr),
                  nullptr);
    }
}

// A binary document may refer to a container twice. Each place has a container of its own.
TEST(PropertyListReading, MutableContainersAreNotShared) {
    BinaryDocument document;
    document.addArray({1, 1});
    document.addArray({2});
    document.addString("x");
    const auto tree = readDocument(document.bytes());
    ASSERT_TRUE(tree);
    const auto at = [&tree](CFIndex index) {
        return const_cast<CFMutableArrayRef>(static_cast<CFArrayRef>(
            CFArrayGetValueAtIndex(static_cast<CFArrayRef>(tree.get()), index)));
    };
    CFArrayAppendValue(at(0), kCFBooleanTrue);
    EXPECT_EQ(CFArrayGetCount(at(0)), 2);
    EXPECT_EQ(CFArrayGetCount(at(1)), 1);
}

// The dictionaries of a long list have the same few keys.
TEST(PropertyListReading, EqualKeysOfAnXmlDocumentAreOneString) {
    const auto tree = readDocument(
        "<array><dict><key>id</key><true/><key>ab</key><true/><key>a&#98;</key><true/></dict>"
        "<dict><key>ab</key><false/></dict></array>");
    ASSERT_TRUE(tree);
    const auto keysOf = [&tree](CFIndex index) {
        const auto dictionary = static_cast<CFDictionaryRef>(
            CFArrayGetValueAtIndex(static_cast<CFArrayRef>(tree.get()), index));
        std::vector<const void*> keys(static_cast<std::size_t>(CFDictionaryGetCount(dictionary)));
        CFDictionaryGetKeysAndValues(dictionary, keys.data(), nullptr);
        return keys;
    };
    ASSERT_EQ(keysOf(0).size(), 2U);
    ASSERT_EQ(keysOf(1).size(), 1U);
    EXPECT_EQ(keysOf(0)[1], keysOf(1)[0]);
    EXPECT_TRUE(equal(keysOf(0)[0], CFSTR("id")));
    EXPECT_TRUE(equal(keysOf(0)[1], CFSTR("ab")));
}

TEST(PropertyListReading, UidHas32Bits) {
    const auto uidOf = [](const std::string& number) {
        const auto tree = readDocument("<dict><key>CF$UID</key>" + number + "</dict>");
        return _CFKeyedArchiverUIDGetValue(static_cast<CFKeyedArchiverUIDRef>(tree.get()));
    };
    EXPECT_EQ(uidOf("<integer>18446744073709551615</integer>"), 4294967295U);
    EXPECT_EQ(uidOf("<real>2147483647.9</real>"), 2147483647U);
    EXPECT_EQ(uidOf("<real>-2147483648.9</real>"), 2147483648U);
    for (const char* const real : {"2147483648", "4294967295", "1e20", "-1e20", "inf", "nan"}) {
        EXPECT_EQ(uidOf("<real>" + std::string(real) + "</real>"), 2147483648U) << real;
    }
}

TEST(PropertyListReading, FourByteRealOfABinaryDocumentHasTheTypeFloat32) {
    BinaryDocument document;
    document.add(std::string("\x22\x3f\x80\x00\x00", 5));
    const auto tree = readDocument(document.bytes());
    ASSERT_TRUE(tree);
    EXPECT_EQ(CFNumberGetType(static_cast<CFNumberRef>(tree.get())), kCFNumberFloat32Type);
}

TEST(PropertyListReading, OldStyleEscapesHaveALimitedNumberOfDigits) {
    const auto textOf = [](const std::string& document) {
        const auto tree = readDocument(document);
        return tree ? unitsOf(static_cast<CFStringRef>(tree.get())) : u"refused";
    };
    EXPECT_EQ(textOf("\"\\U00e9a\""), u"\u00e9a");
    EXPECT_EQ(textOf("\"\\Ue9 \""), u"\u00e9 ");
    EXPECT_EQ(textOf("\"\\1011\""), u"A1");
}

// Returns the pattern with the filler in place of each underscore.
std::string filled(std::string_view pattern, std::string_view filler) {
    std::string text;
    for (const char each : pattern) {
        if (each == '_') {
            text += filler;
        } else {
            text += each;
        }
    }
    return text;
}

// In the first document the line end is filler. In the second one it also ends a comment.
TEST(PropertyListReading, OldStyleHasFiveLineEnds) {
    for (const char* const end : {"\n", "\r", "\r\n", "\u2028", "\u2029"}) {
        const auto array = makeArray();
        CFArrayAppendValue(array.get(), CFSTR("a"));
        CFArrayAppendValue(array.get(), CFSTR("b"));
        for (const char* const pattern : {"(a,_b)_", "(a, // not c,_b)"}) {
            const std::string document = filled(pattern, end);
            const auto tree = readDocument(document);
            ASSERT_TRUE(tree) << document;
            EXPECT_TRUE(equal(tree.get(), array.get())) << document;
        }
    }
}

TEST(PropertyListReading, OldStyleDataMayHoldSpacesBetweenBytes) {
    for (const char* const space : {" ", "\t", "\n", "\r", "\u2028", "\u2029"}) {
        const auto tree = readDocument(filled("<_61_62_>", space));
        ASSERT_TRUE(tree) << space;
        EXPECT_TRUE(equal(tree.get(), makeData("ab").get())) << space;
    }
    EXPECT_FALSE(readDocument("<61\v62>"));
    EXPECT_FALSE(readDocument("<6 1>"));
}

TEST(PropertyListReading, OldStyleDataReadsTheLowByteOfACharacter) {
    const auto data = readDocument("<\ua961\u0162 3\u0639>");
    ASSERT_TRUE(data);
    EXPECT_TRUE(equal(data.get(), makeData("\xab\x39").get()));
    EXPECT_FALSE(readDocument("<6\u0167>"));
    EXPECT_FALSE(readDocument("<\u0120>"));
}

TEST(PropertyListReading, BooleanMayHaveAnEndTag) {
    const auto tree = readDocument("<array><true></true><false></false></array>");
    ASSERT_TRUE(tree);
    const auto array = static_cast<CFArrayRef>(tree.get());
    EXPECT_EQ(CFArrayGetValueAtIndex(array, 0), kCFBooleanTrue);
    EXPECT_EQ(CFArrayGetValueAtIndex(array, 1), kCFBooleanFalse);
    EXPECT_FALSE(readDocument("<array><false></true></array>"));
}

TEST(PropertyListReading, RealMayFollowWideSpaces) {
    for (const std::string space :
         {" ", "\u2000", "\u200b", "\u3000", "\u0080", "\u00a0", "\x7f", "&#1;"}) {
        const auto number = readDocument("<real>" + space + "2.5</real>");
        ASSERT_TRUE(number) << space;
        EXPECT_TRUE(equal(number.get(), makeReal(2.5).get())) << space;
    }
    for (const std::string other : {"\u200c", "\u1fff", "\u3001", "\u00a1", "\u0100", "\u0132", "x",
                                    "2.5 ", "2.5\u2000", "~"}) {
        EXPECT_FALSE(readDocument("<real>" + other + "2.5</real>")) << other;
    }
    EXPECT_FALSE(readDocument("<real></real>"));
    EXPECT_FALSE(readDocument("<real> </real>"));
    EXPECT_FALSE(readDocument(std::string("<real>2\0</real>", 15)));
}

TEST(PropertyListReading, NullPointerIsNotRead) {
    CFStringRef given = nullptr;
    EXPECT_EQ(CFPropertyListCreateFromXMLData(kCFAllocatorDefault, nullptr, 0, &given), nullptr);
    EXPECT_TRUE(own(given));
    EXPECT_EQ(CFPropertyListCreateWithData(kCFAllocatorDefault, nullptr, 0, nullptr, nullptr),
              nullptr);
}

TEST(PropertyListReading, TreeDoesNotReferToTheDocument) {
    std::string document =
        "<dict><key>key</key><array><string>caf\u00e9</string>"
        "<data>YWJj</data></array></dict>";
    auto data = own(CFDataCreateWithBytesNoCopy(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(document.data()),
        static_cast<CFIndex>(document.size()), kCFAllocatorNull));
    const auto tree =
        own(CFPropertyListCreateFromXMLData(kCFAllocatorDefault, data.get(), 1, nullptr));
    EXPECT_EQ(CFGetRetainCount(data.get()), 1);
    const auto same = readDocument(document);
    data = {};
    document.assign(document.size(), 'x');
    EXPECT_TRUE(equal(tree.get(), same.get()));
}

}  // namespace
}  // namespace qv::tests
