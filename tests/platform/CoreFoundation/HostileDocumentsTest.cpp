// SPDX-License-Identifier: Apache-2.0

// Reads documents that are meant to crash the reader, to fill the memory or to take forever. Each
// document is read, checked, written and released in a process of its own with little memory and a
// small stack.

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "platform/CoreFoundation/Confined.h"
#include "platform/CoreFoundation/Documents.h"
#include "platform/CoreFoundation/Objects.h"
#include "support/UsualOrReduced.h"

namespace qv::tests {
namespace {

constexpr std::size_t kMegabyte = 1UL << 20;

// The size of documents of which any size shows the same. It exceeds the buffers of the readers in
// every build.
constexpr std::size_t kLargeSize = usualOrReduced(kMegabyte, kMegabyte / 16);

enum class Expected { kLoaded, kRefused, kEither };

// Reads the document with both options, and checks and writes its tree. Whether the document is
// loaded must be as expected.
void use(const std::string& document, Expected expected) {
    for (const CFOptionFlags option :
         {kCFPropertyListImmutable, kCFPropertyListMutableContainers}) {
        CFStringRef given = nullptr;
        // The data does not copy the document, so the sanitizers see a read past its end.
        const auto data = own(CFDataCreateWithBytesNoCopy(
            kCFAllocatorDefault, reinterpret_cast<const UInt8*>(document.data()),
            static_cast<CFIndex>(document.size()), kCFAllocatorNull));
        const auto tree =
            own(CFPropertyListCreateFromXMLData(kCFAllocatorDefault, data.get(), option, &given));
        const auto reason = own(given);
        if (expected != Expected::kEither) {
            EXPECT_EQ(static_cast<bool>(tree), expected == Expected::kLoaded);
        }
        if (!tree) {
            // There is no reason if memory was too short for the document.
            EXPECT_TRUE(reason || expected == Expected::kEither);
            continue;
        }
        const bool isValid =
            CFPropertyListIsValid(tree.get(), kCFPropertyListXMLFormat_v1_0) != FALSE;
        // A tree within the limits of the writer does not always fit into the memory of this
        // process.
        const auto xml = own(CFPropertyListCreateXMLData(kCFAllocatorDefault, tree.get()));
        EXPECT_TRUE(isValid || !xml);
        if (expected == Expected::kLoaded) {
            EXPECT_TRUE(xml);
        }
    }
}

void expectLoaded(const std::string& document) {
    confined([&document] { use(document, Expected::kLoaded); });
}
void expectRefused(const std::string& document) {
    confined([&document] { use(document, Expected::kRefused); });
}
void expectHarmless(const std::string& document) {
    confined([&document] { use(document, Expected::kEither); });
}

// Repeats the text until the document takes just under `size` bytes.
std::string filled(const std::string& begin, const std::string& text, const std::string& end,
                   std::size_t size = kMegabyte) {
    return begin + repeated(text, (size - begin.size() - end.size() - 1) / text.size()) + end;
}

void expectFilledHarmless(const std::string& begin, const std::string& text,
                          const std::string& end) {
    expectHarmless(filled(begin, text, end, kLargeSize));
}

class Doubling : public testing::TestWithParam<int> {};

// Each level refers to the next one twice, so the tree is 2^levels times as large as its document.
TEST_P(Doubling, NestedArraysAreRefused) {
    BinaryDocument document;
    for (int level = 1; level <= GetParam(); ++level) {
        const auto next = static_cast<std::uint64_t>(level);
        document.addArray({next, next});
    }
    document.addString("x");
    expectRefused(document.bytes());
}

TEST_P(Doubling, NestedDictionariesAreRefused) {
    BinaryDocument document;
    const auto levels = static_cast<std::uint64_t>(GetParam());
    for (std::uint64_t level = 1; level <= levels; ++level) {
        document.addDictionary({levels + 1, levels + 2}, {level, level});
    }
    document.addString("x");
    document.addString("a");
    document.addString("b");
    expectRefused(document.bytes());
}

INSTANTIATE_TEST_SUITE_P(Levels, Doubling, testing::Values(20, 30, 40, 60, 62));

TEST(HostileBinary, DoublingSetsAreHarmless) {
    BinaryDocument document;
    for (int level = 1; level <= 60; ++level) {
        document.add({'\xc2', static_cast<char>(level), static_cast<char>(level)});
    }
    document.addString("x");
    expectHarmless(document.bytes());
}

// Returns a document whose array refers a million times to the next object.
BinaryDocument aMillionTimes() {
    BinaryDocument document;
    document.addArray(std::vector<std::uint64_t>(1000000, 1));
    return document;
}

TEST(HostileBinary, LargeObjectReferredToAMillionTimesIsRefused) {
    for (const std::string& object :
         {BinaryDocument::head(0x50, 500000) + std::string(500000, 'x'),
          BinaryDocument::head(0x60, 250000) + repeated("\x4e\x2d", 250000),
          BinaryDocument::head(0x40, 500000) + std::string(500000, 'x')}) {
        BinaryDocument document = aMillionTimes();
        document.add(object);
        expectRefused(document.bytes());
    }
    BinaryDocument nested = aMillionTimes();
    for (std::uint64_t level = 2; level <= 200; ++level) {
        nested.addArray({level});
    }
    nested.addArray({});
    expectRefused(nested.bytes());
}

// A document may be small, but its written tree counts. An & is written as five bytes. If it took
// one byte, the tree would be within the limit. The depth makes each line long.
TEST(HostileBinary, ManyEscapedCharactersAreRefused) {
    constexpr std::uint64_t kDepth = 1000;
    BinaryDocument document = nestedArrays(kDepth);
    document.addArray(std::vector<std::uint64_t>(500'000, kDepth + 1));
    document.addString(std::string(20, '&'));
    expectRefused(document.bytes());
}

TEST(HostileBinary, ManyDeeplyNestedUidsAreHarmless) {
    BinaryDocument document(2);
    for (std::uint64_t level = 1; level <= 1000; ++level) {
        document.addArray({level});
    }
    document.addArray(std::vector<std::uint64_t>(65000, 1001));
    document.add("\x80\x05");
    expectHarmless(document.bytes());
}

// Each string is the rest of the document. All strings take more memory than this process has, but
// less than the writer allows.
TEST(HostileBinary, OverlappingStringsAreHarmless) {
    constexpr std::uint64_t kStrings = usualOrReduced(4000, 400);
    BinaryDocument document(2);
    std::vector<std::uint64_t> all;
    for (std::uint64_t number = 1; number <= kStrings; ++number) {
        all.push_back(number);
    }
    document.addArray(all);
    constexpr std::size_t kHeadSize = 10;
    for (std::uint64_t number = 1; number <= kStrings; ++number) {
        document.add(BinaryDocument::head(0x50, 17000 + (kStrings - number) * kHeadSize));
    }
    document.add(std::string(17000, '&'));
    expectHarmless(document.bytes());
}

TEST(HostileBinary, EmptyDictionaryReferredToAMillionTimesIsLoaded) {
    BinaryDocument document = aMillionTimes();
    document.addDictionary({}, {});
    expectLoaded(document.bytes());
}

TEST(HostileBinary, LongKeyReferredToAMillionTimesIsRefused) {
    BinaryDocument document;
    document.addDictionary(std::vector<std::uint64_t>(500000, 1),
                           std::vector<std::uint64_t>(500000, 2));
    document.addString(std::string(500000, 'k'));
    document.addString("value");
    expectRefused(document.bytes());
}

TEST(HostileBinary, CountLargerThanTheDocumentIsRefused) {
    confined([] {
        for (const unsigned marker : {0x40U, 0x50U, 0x60U, 0xa0U, 0xc0U, 0xd0U}) {
            for (const std::uint64_t count :
                 {std::uint64_t(100), std::uint64_t(1) << 31, std::uint64_t(1) << 32,
                  (std::uint64_t(1) << 32) + 1, std::uint64_t(1) << 61, std::uint64_t(1) << 62,
                  (std::uint64_t(1) << 62) + 1, std::uint64_t(1) << 63,
                  std::numeric_limits<std::uint64_t>::max()}) {
                SCOPED_TRACE(testing::Message() << marker << ' ' << count);
                // Some of these sizes make the product of count and size wrap around.
                for (const std::uint8_t referenceSize : {1, 2, 4, 8, 16, 64, 128, 255}) {
                    BinaryDocument document(referenceSize);
                    document.add(BinaryDocument::head(marker, count));
                    document.addString("x");
                    use(document.bytes(), Expected::kRefused);
                }
            }
        }
    });
}

TEST(HostileBinary, CountOfEverySizeIsHarmless) {
    for (int size = 0; size < 16; ++size) {
        BinaryDocument document;
        document.add(std::string("\xaf") + static_cast<char>(0x10 | size) +
                     std::string(std::size_t(1) << std::min(size, 12), '\xff'));
        expectHarmless(document.bytes());
    }
}

TEST(HostileBinary, ExtremesOfTheTrailerAreHarmless) {
    BinaryDocument document;
    document.addArray({1, 1});
    document.addString("x");
    const BinaryTrailer sound = document.trailer();
    const std::uint64_t extremes[] = {0,
                                      1,
                                      sound.objectCount,
                                      sound.offsetTable,
                                      255,
                                      std::uint64_t(1) << 31,
                                      std::uint64_t(1) << 32,
                                      std::uint64_t(1) << 61,
                                      (std::uint64_t(1) << 62) + 1,
                                      std::uint64_t(1) << 63,
                                      std::numeric_limits<std::uint64_t>::max() - 7,
                                      std::numeric_limits<std::uint64_t>::max()};
    confined([&] {
        use(document.bytes(sound), Expected::kLoaded);
        for (const std::uint64_t extreme : extremes) {
            BinaryTrailer trailer = sound;
            trailer.objectCount = extreme;
            use(document.bytes(trailer), Expected::kEither);
            trailer = sound;
            trailer.root = extreme;
            use(document.bytes(trailer),
                extreme < sound.objectCount ? Expected::kLoaded : Expected::kRefused);
            trailer = sound;
            trailer.offsetTable = extreme;
            use(document.bytes(trailer), Expected::kEither);
            trailer.objectCount = extreme;
            use(document.bytes(trailer), Expected::kEither);
            trailer.objectCount = std::numeric_limits<std::uint64_t>::max() - extreme;
            use(document.bytes(trailer), Expected::kEither);
        }
        for (int size = 0; size < 256; ++size) {
            BinaryTrailer trailer = sound;
            trailer.offsetSize = static_cast<std::uint8_t>(size);
            use(document.bytes(trailer), Expected::kEither);
            for (const std::uint64_t count : extremes) {
                trailer.objectCount = count;
                use(document.bytes(trailer), Expected::kEither);
            }
            trailer = sound;
            trailer.referenceSize = static_cast<std::uint8_t>(size);
            use(document.bytes(trailer), Expected::kEither);
        }
    });
}

TEST(HostileBinary, OffsetOutsideOfTheObjectsIsRefused) {
    BinaryDocument sound(1, 8);
    sound.addArray({1, 2});
    sound.addString("x");
    // The long string follows the object, so an offset into the magic is not refused because the
    // document ends.
    sound.addString(std::string(100, 'y'));
    const std::string document = sound.bytes();
    const std::size_t table = sound.trailer().offsetTable;
    confined([&] {
        use(document, Expected::kLoaded);
        for (const std::uint64_t offset :
             {std::uint64_t(0), std::uint64_t(1), std::uint64_t(2), std::uint64_t(3),
              std::uint64_t(4), std::uint64_t(5), std::uint64_t(6), std::uint64_t(7),
              std::uint64_t(table), std::uint64_t(table + 1), std::uint64_t(document.size()),
              std::uint64_t(1) << 32, std::uint64_t(1) << 63,
              std::numeric_limits<std::uint64_t>::max()}) {
            for (std::size_t entry = 0; entry < 3; ++entry) {
                std::string changed = document;
                changed.replace(table + 8 * entry, 8, bigEndian(offset, 8));
                use(changed, Expected::kRefused);
            }
        }
    });
}

TEST(HostileBinary, ReferencesToNoObjectAreRefused) {
    confined([] {
        for (const std::uint8_t size : {1, 2, 8}) {
            for (const std::uint64_t reference :
                 {std::uint64_t(2), std::uint64_t(3), std::uint64_t(17), std::uint64_t(255),
                  std::numeric_limits<std::uint64_t>::max()}) {
                // With each size of the offsets, the bytes behind the offset table look like
                // different offsets.
                for (const std::uint8_t offsetSize : {1, 2, 3, 4, 7, 8}) {
                    BinaryDocument array(size, offsetSize);
                    array.addArray({reference});
                    array.addString("x");
                    use(array.bytes(), Expected::kRefused);
                    BinaryDocument key(size, offsetSize);
                    key.addDictionary({reference}, {1});
                    key.addString("x");
                    use(key.bytes(), Expected::kRefused);
                    BinaryDocument value(size, offsetSize);
                    value.addDictionary({1}, {reference});
                    value.addString("x");
                    use(value.bytes(), Expected::kRefused);
                }
            }
        }
    });
}

TEST(HostileBinary, TooSmallReferencesOrOffsetsAreRefused) {
    std::vector<std::uint64_t> elements(300, 1);
    BinaryDocument references(1, 2);
    references.addArray(elements);
    BinaryDocument sound(2, 2);
    sound.addArray(elements);
    BinaryDocument offsets(2, 1);
    offsets.addArray(elements);
    for (int element = 0; element < 300; ++element) {
        references.addString("x");
        sound.addString("x");
        offsets.addString("x");
    }
    expectLoaded(sound.bytes());
    expectRefused(references.bytes());
    expectRefused(offsets.bytes());
}

TEST(HostileBinary, CyclesAreRefused) {
    for (const std::size_t length : {1U, 2U, 3U, 100U, 255U}) {
        BinaryDocument arrays;
        BinaryDocument dictionaries(2);
        for (std::size_t level = 0; level < length; ++level) {
            arrays.addArray({(level + 1) % length});
            dictionaries.addDictionary({length}, {(level + 1) % length});
        }
        dictionaries.addString("k");
        expectRefused(arrays.bytes());
        expectRefused(dictionaries.bytes());
    }
    BinaryDocument set;
    set.add(std::string("\xc1\0", 2));
    expectRefused(set.bytes());
    BinaryDocument ownKey;
    ownKey.addDictionary({0}, {0});
    expectRefused(ownKey.bytes());
}

TEST(HostileBinary, EveryMarkerIsHarmlessAsRootElementAndKey) {
    confined([] {
        for (int marker = 0; marker < 256; ++marker) {
            const std::string object = static_cast<char>(marker) + std::string(16, '\x01');
            BinaryDocument root;
            root.add(object);
            use(root.bytes(), Expected::kEither);
            BinaryDocument short_;
            short_.add(std::string(1, static_cast<char>(marker)));
            use(short_.bytes(), Expected::kEither);
            BinaryDocument element;
            element.addArray({1});
            element.add(object);
            use(element.bytes(), Expected::kEither);
            BinaryDocument key;
            key.addDictionary({1}, {2});
            key.add(object);
            key.addString("value");
            use(key.bytes(), Expected::kEither);
        }
    });
}

TEST(HostileBinary, WidestDocumentIsLoaded) {
    BinaryDocument dictionaries(3, 3);
    std::vector<std::uint64_t> elements;
    for (std::uint64_t element = 1; element < kMegabyte / 7 - 10; ++element) {
        elements.push_back(element);
    }
    dictionaries.addArray(elements);
    for (std::size_t element = 0; element < elements.size(); ++element) {
        dictionaries.addDictionary({}, {});
    }
    ASSERT_LT(dictionaries.bytes().size(), kMegabyte);
    expectLoaded(dictionaries.bytes());

    BinaryDocument keys(3, 3);
    elements.resize(60000);
    keys.addDictionary(elements, elements);
    for (const std::uint64_t element : elements) {
        keys.addString(std::to_string(element));
    }
    ASSERT_LT(keys.bytes().size(), kMegabyte);
    expectLoaded(keys.bytes());
}

TEST(HostileXml, WidestDocumentsAreLoaded) {
    for (const char* const element :
         {"<dict/>", "<array/>", "<true/>", "<string/>", "<integer>1</integer>", "<real>1</real>",
          "<data></data>", "<dict><key/><dict/></dict>", "<key/>"}) {
        SCOPED_TRACE(element);
        expectLoaded(filled("<array>", element, "</array>"));
    }
}

TEST(HostileXml, TreeTooWideForItsDepthIsRefused) {
    // Each line is over a thousand columns wide.
    expectRefused(repeated("<array>", 1020) + repeated("<true/>", 600000) +
                  repeated("</array>", 1020));
}

TEST(HostileXml, DeeplyNestedWideTreeIsHarmless) {
    for (const char* const element : {"<key/>", "<true/>", "<data></data>", "<dict/>"}) {
        SCOPED_TRACE(element);
        expectFilledHarmless(repeated("<array>", 1020), element, repeated("</array>", 1020));
    }
}

TEST(HostileOldStyle, DeeplyNestedWideTreeIsHarmless) {
    expectFilledHarmless(repeated("(", 511), "a,", repeated(")", 511));
    expectFilledHarmless(repeated("(", 511), "(),", repeated(")", 511));
}

TEST(HostileXml, ManyKeysAreLoaded) {
    std::string different = "<dict>";
    std::string alike = "<dict>";
    for (int key = 0; different.size() < kMegabyte - 100; ++key) {
        different += "<key>" + std::to_string(key) + "</key><true/>";
    }
    // A weak hash function would put these keys into one bucket: they have equal beginnings,
    // middles and ends, and pairs of characters with equal sums.
    for (unsigned key = 0; alike.size() < kMegabyte - 200; ++key) {
        alike += "<key>the same beginning ";
        for (unsigned bit = 0; bit < 16; ++bit) {
            alike += (key >> bit & 1U) != 0 ? "Aa" : "BB";
        }
        alike += " the same end</key><true/>";
    }
    expectLoaded(different + "</dict>");
    expectLoaded(alike + "</dict>");
    expectLoaded(filled("<dict>", "<key>one</key><true/>", "</dict>"));
}

TEST(HostileXml, HugeStringIsLoaded) {
    for (const char* const text : {"x", "\u4e2d", "\U0001f600", "&amp;", "&#65;", "&#x4e2d;",
                                   "<![CDATA[x]]>", "<![CDATA[]]>"}) {
        SCOPED_TRACE(text);
        expectLoaded(filled("<string>", text, "</string>"));
    }
    expectLoaded(filled("<string><![CDATA[", "]", "]]></string>"));
    expectLoaded(filled("<data>", "AAAA", "</data>"));
    expectLoaded(filled("<data>", "\n", "AAAA</data>"));
}

TEST(HostileXml, HugeFillerIsLoaded) {
    expectLoaded(filled("<!--", "-", "--><dict/>"));
    expectLoaded(filled("<!--", "x", "--><dict/>"));
    expectLoaded(filled("", "<!-- -->", "<dict/>"));
    expectLoaded(filled("", "<?x?>", "<dict/>"));
    expectLoaded(filled("<?xml ", "x", "?><dict/>"));
    expectLoaded(filled("", " ", "<dict/>"));
    expectLoaded(filled("<dict/>", "x", ""));
    expectLoaded(filled("<dict>", "\n", "</dict>"));
    expectLoaded(filled("<plist ", "x", "><dict/></plist>"));
    expectLoaded(filled("<dict ", "/", " ></dict>"));
}

TEST(HostileXml, ManyDigitsAreHarmless) {
    for (const char* const digit : {"1", "0", "9", "F", " ", "-", "+", "."}) {
        SCOPED_TRACE(digit);
        for (const std::string kind : {"integer", "real", "date"}) {
            expectFilledHarmless('<' + kind + '>', digit, "</" + kind + '>');
        }
        expectFilledHarmless("<integer>0x", digit, "</integer>");
        expectFilledHarmless("<real>1e", digit, "</real>");
        expectFilledHarmless("<real>0.", digit, "</real>");
        expectFilledHarmless("<date>", digit, "-01-01T00:00:00Z</date>");
        expectFilledHarmless("<string>&#", digit, ";</string>");
        expectFilledHarmless("<string>&#x", digit, ";</string>");
    }
}

TEST(HostileXml, RepetitionIsHarmless) {
    for (const char* const text : {"<",
                                   ">",
                                   "&",
                                   "/",
                                   "<!",
                                   "<!-",
                                   "<!--",
                                   "<?",
                                   "<!DOCTYPE",
                                   "<!DOCTYPE ",
                                   "<![CDATA[",
                                   "<string>",
                                   "<string>&",
                                   "<key>",
                                   "<dict>",
                                   "<dict><key>",
                                   "<dict><key></key>",
                                   "</dict>",
                                   "<array/>",
                                   "<data>",
                                   "<integer>",
                                   "<real>",
                                   "<date>",
                                   "<true>",
                                   "<true/",
                                   "<plist",
                                   "<a ",
                                   "<?xml encoding=\"",
                                   "<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
                                   "\xef\xbb\xbf",
                                   "\xff\xfe",
                                   "\xff",
                                   "bplist00",
                                   "]]>",
                                   "-->",
                                   "\"",
                                   "'",
                                   "=",
                                   "&#",
                                   "&#x",
                                   "&amp;"}) {
        SCOPED_TRACE(text);
        expectFilledHarmless("", text, "");
        expectFilledHarmless("<dict>", text, "");
        expectFilledHarmless("<string>", text, "");
        expectFilledHarmless("<plist><array>", text, "</array></plist>");
    }
}

TEST(HostileXml, OtherEncodingsAreHarmless) {
    for (const char* const name :
         {"UTF-7", "UTF-16", "UTF-32", "UCS-4", "Shift_JIS", "EUC-JP", "GBK", "GB18030", "Big5",
          "ISO-2022-JP", "ISO-2022-KR", "HZ-GB-2312", "windows-1252", "IBM037", "US-ASCII",
          "//TRANSLIT", "UTF-8//IGNORE", "../../etc/passwd", "%s%n"}) {
        SCOPED_TRACE(name);
        const std::string begin =
            std::string("<?xml version=\"1.0\" encoding=\"") + name + "\"?><string>";
        for (const char* const text :
             {"x", "\x1b$B", "\xff", "\x80\x80", "\x81", "\x84\x31\xa4\x37"}) {
            expectFilledHarmless(begin, text, "</string>");
        }
    }
    expectFilledHarmless("<?xml version=\"1.0\" encoding=\"", "x", "\"?><dict/>");
    for (const std::string& mark :
         {std::string("\xff\xfe", 2), std::string("\xfe\xff", 2), std::string("\xff\xfe\0\0", 4),
          std::string("\0\0\xfe\xff", 4)}) {
        expectHarmless(mark);
        expectFilledHarmless(mark, std::string("\0<", 2), "");
        expectFilledHarmless(mark, std::string("<\0", 2), "x");
        expectFilledHarmless(mark, "\xd8", "");
        expectFilledHarmless(mark, "\xff", "xyz");
    }
}

TEST(HostileOldStyle, WidestDocumentsAreLoaded) {
    for (const char* const element : {"(),", "{},", "a,", "\"\",", "<>,"}) {
        SCOPED_TRACE(element);
        expectLoaded(filled("(", element, ")", kLargeSize));
    }
    expectLoaded(filled("{", "a=a;", "}", kLargeSize));
    expectLoaded(filled("{", "a;", "}", kLargeSize));
    expectLoaded(filled("", "a=a;", "", kLargeSize));
    std::string different;
    for (int key = 0; different.size() < kLargeSize - 100; ++key) {
        different += std::to_string(key) + "=" + std::to_string(key) + ";";
    }
    expectLoaded(different);
    expectLoaded("{" + different + "}");
}

TEST(HostileOldStyle, HugeLeavesAreLoaded) {
    expectLoaded(filled("", "a", ""));
    expectLoaded(filled("\"", "a", "\""));
    expectLoaded(filled("\"", "\\U4e2d", "\""));
    expectLoaded(filled("\"", "\\351", "\""));
    expectLoaded(filled("\"", "\\\"", "\""));
    expectLoaded(filled("<", "0fbd", ">"));
    expectLoaded(filled("<", "0fbd ", ">"));
    expectLoaded(filled("", "/* */", "{}"));
    expectLoaded(filled("/*", "x", "*/{}"));
    expectLoaded(filled("//", "x", "\n{}"));
    expectLoaded(filled("", "//\n", "{}"));
}

TEST(HostileOldStyle, RepetitionIsHarmless) {
    for (const char* const text :
         {"(",    ")",   "{",  "}", "((", "({",   "{a=",   "{a=(", "(a,", "<",
          "<0",   "<0f", "\"", "'", "\\", "\"\\", "\"\\U", "/",    "/*",  "//",
          "/**/", ";",   ",",  "=", "a=", "a =b", "a;",    "\n",   " "}) {
        SCOPED_TRACE(text);
        expectFilledHarmless("", text, "");
        expectFilledHarmless("{", text, "");
        expectFilledHarmless("(", text, ")");
        expectFilledHarmless("\"", text, "");
    }
}

}  // namespace
}  // namespace qv::tests
