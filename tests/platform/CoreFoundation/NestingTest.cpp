// SPDX-License-Identifier: Apache-2.0

// Shows the limits of nesting. A document beyond them is refused, and no depth overflows the stack:
// all tests run on a small stack.

#include <gtest/gtest.h>

#include <string>

#include "platform/CoreFoundation/Confined.h"
#include "platform/CoreFoundation/Documents.h"
#include "platform/CoreFoundation/Objects.h"
#include "support/UsualOrReduced.h"

namespace qv::tests {
namespace {

// A function that called itself once for each of these levels would overflow the stack.
constexpr std::size_t kMany = usualOrReduced(1'000'000, 200'000);
constexpr std::size_t kManyDictionaries = 100'000;

bool isValid(CFTypeRef object) {
    return tests::isValid(object, kCFPropertyListBinaryFormat_v1_0);
}

// Returns the depth to which the first elements are nested.
std::size_t depthOf(CFTypeRef object) {
    std::size_t depth = 0;
    while (object != nullptr) {
        if (CFGetTypeID(object) == CFArrayGetTypeID()) {
            object = CFArrayGetValueAtIndex(static_cast<CFArrayRef>(object), 0);
        } else if (CFGetTypeID(object) == CFDictionaryGetTypeID()) {
            object = CFDictionaryGetValue(static_cast<CFDictionaryRef>(object), CFSTR("k"));
        } else {
            break;
        }
        ++depth;
    }
    return depth;
}

void expectLoaded(const std::string& document, std::size_t depth) {
    const auto tree = readDocument(document);
    ASSERT_TRUE(tree);
    EXPECT_EQ(depthOf(tree.get()), depth);
    EXPECT_TRUE(isValid(tree.get()));
    EXPECT_TRUE(equal(tree.get(), readDocument(document, kCFPropertyListImmutable).get()));
    EXPECT_TRUE(own(CFCopyDescription(tree.get())));
    const auto xml = writeDocument(tree.get());
    ASSERT_TRUE(xml);
    EXPECT_TRUE(equal(tree.get(), readDocument(*xml).get()));
}

void expectTooDeep(const std::string& document) {
    EXPECT_FALSE(readDocument(document));
    EXPECT_FALSE(readDocument(document, kCFPropertyListImmutable));
}

// Reads the document, and checks, writes, hashes and describes its tree.
void readAndUse(const std::string& document) {
    for (const CFOptionFlags option :
         {kCFPropertyListImmutable, kCFPropertyListMutableContainers}) {
        const auto tree = readDocument(document, option);
        if (tree) {
            isValid(tree.get());
            writeDocument(tree.get());
            CFHash(tree.get());
            own(CFCopyDescription(tree.get()));
        }
    }
}

TEST(Nesting, LimitIs1024Levels) {
    onSmallStack([] {
        for (const auto& nested : kNestedXml) {
            SCOPED_TRACE(nested.name);
            expectLoaded(nested.whole(1024), 1024);
            expectTooDeep(nested.whole(1026));
        }
        expectTooDeep(kNestedXml[0].whole(1025));
        for (const auto& nested : kNestedBinary) {
            SCOPED_TRACE(nested.name);
            expectLoaded(nested.whole(1024), 1024);
            expectTooDeep(nested.whole(1025));
        }
    });
}

TEST(Nesting, LeafAtTheDeepestLevelIsLoaded) {
    onSmallStack([] {
        for (const char* const leaf : {"<string>s</string>", "<integer>1</integer>", "<true/>"}) {
            expectLoaded(repeated("<array>", 1024) + leaf + repeated("</array>", 1024), 1024);
        }
        expectLoaded(repeated("(", 512) + "s" + repeated(")", 512), 512);
    });
}

TEST(Nesting, KeyThatIsItsOwnValueIsALeaf) {
    onSmallStack([] {
        EXPECT_TRUE(readDocument(repeated("(", 511) + "{key;}" + repeated(")", 511)));
        EXPECT_FALSE(readDocument(repeated("(", 512) + "{key;}" + repeated(")", 512)));
    });
}

// A UID is written as a dictionary, which adds a level.
TEST(Nesting, WrittenDocumentCanBeRead) {
    onSmallStack([] {
        for (const std::size_t depth : {1022U, 1023U, 1024U}) {
            BinaryDocument document(4);
            for (std::size_t level = 1; level <= depth; ++level) {
                document.addArray({level});
            }
            document.add("\x80\x05");
            const auto tree = readDocument(document.bytes());
            ASSERT_TRUE(tree);
            const auto xml = writeDocument(tree.get());
            EXPECT_EQ(xml.has_value(),
                      CFPropertyListIsValid(tree.get(), kCFPropertyListXMLFormat_v1_0) != FALSE);
            if (xml) {
                EXPECT_TRUE(readDocument(*xml)) << depth;
            }
        }
    });
}

TEST(Nesting, DocumentOfManyLevelsIsHarmless) {
    for (const auto& nested : kNestedXml) {
        SCOPED_TRACE(nested.name);
        confined([&nested] { readAndUse(nested.whole(kMany)); });
        confined([&nested] { readAndUse(nested.unclosed(kMany)); });
    }
    for (const auto& nested : kNestedOldStyle) {
        SCOPED_TRACE(nested.name);
        confined([&nested] { readAndUse(nested.whole(kMany)); });
        confined([&nested] { readAndUse(nested.unclosed(kMany)); });
    }
    for (const auto& nested : kNestedBinary) {
        SCOPED_TRACE(nested.name);
        confined([&nested] { readAndUse(nested.whole(kMany)); });
        confined([&nested] { readAndUse(nested.unclosed(kMany)); });
    }
}

TEST(Nesting, ManyPlistTagsAreHarmless) {
    confined(
        [] { readAndUse(repeated("<plist>", kMany) + "<dict/>" + repeated("</plist>", kMany)); });
    confined([] { readAndUse(repeated("<plist>", kMany)); });
    confined([] { readAndUse(repeated("<plist version=\"1.0\">\n<array>", kMany / 2)); });
    onSmallStack([] {
        const auto tree =
            readDocument(repeated("<plist>", 100) + "<dict/>" + repeated("</plist>", 100));
        EXPECT_TRUE(tree);
    });
}

// Returns nested arrays that the program creates.
Owned<CFArrayRef> arrays(std::size_t depth) {
    auto array = own(CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeArrayCallBacks));
    for (std::size_t level = 1; level < depth; ++level) {
        const void* inner = array.get();
        array = own(CFArrayCreate(kCFAllocatorDefault, &inner, 1, &kCFTypeArrayCallBacks));
    }
    return array;
}

Owned<CFMutableDictionaryRef> dictionaries(std::size_t depth) {
    auto dictionary = makeDictionary();
    for (std::size_t level = 1; level < depth; ++level) {
        auto outer = makeDictionary();
        CFDictionarySetValue(outer.get(), CFSTR("k"), dictionary.get());
        dictionary = std::move(outer);
    }
    return dictionary;
}

TEST(Nesting, DeepestValidTreeHas1024Levels) {
    onSmallStack([] {
        for (const std::size_t depth : {1023U, 1024U}) {
            EXPECT_TRUE(isValid(arrays(depth).get())) << depth;
            EXPECT_TRUE(writeDocument(arrays(depth).get())) << depth;
            EXPECT_TRUE(isValid(dictionaries(depth).get())) << depth;
            EXPECT_TRUE(writeDocument(dictionaries(depth).get())) << depth;
        }
        EXPECT_FALSE(isValid(arrays(1025).get()));
        EXPECT_FALSE(writeDocument(arrays(1025).get()));
        EXPECT_FALSE(isValid(dictionaries(1025).get()));
        EXPECT_FALSE(writeDocument(dictionaries(1025).get()));
    });
}

TEST(Nesting, TreeOfManyLevelsIsNeitherValidNorWritten) {
    onSmallStack([] {
        EXPECT_FALSE(isValid(arrays(kMany).get()));
        EXPECT_FALSE(writeDocument(arrays(kMany).get()));
        EXPECT_FALSE(isValid(dictionaries(kManyDictionaries).get()));
        EXPECT_FALSE(writeDocument(dictionaries(kManyDictionaries).get()));
    });
}

TEST(Nesting, TreesOfManyLevelsAreCompared) {
    onSmallStack([] {
        EXPECT_TRUE(equal(arrays(kMany).get(), arrays(kMany).get()));
        EXPECT_FALSE(equal(arrays(kMany).get(), arrays(kMany - 1).get()));
        EXPECT_TRUE(
            equal(dictionaries(kManyDictionaries).get(), dictionaries(kManyDictionaries).get()));
        EXPECT_EQ(CFHash(arrays(kMany).get()), CFHash(arrays(kMany).get()));
    });
}

TEST(Nesting, KeyOfManyLevelsIsFound) {
    onSmallStack([] {
        auto dictionary = makeDictionary();
        CFDictionarySetValue(dictionary.get(), arrays(kMany).get(), kCFBooleanTrue);
        EXPECT_NE(CFDictionaryContainsKey(dictionary.get(), arrays(kMany).get()), FALSE);
        EXPECT_FALSE(isValid(dictionary.get()));
        EXPECT_FALSE(writeDocument(dictionary.get()));
    });
}

// Returns nested dictionaries. Each is a key of the next one.
Owned<CFMutableDictionaryRef> keysInKeys(std::size_t depth) {
    auto dictionary = makeDictionary();
    for (std::size_t level = 1; level < depth; ++level) {
        auto outer = makeDictionary();
        CFDictionarySetValue(outer.get(), dictionary.get(), kCFBooleanTrue);
        dictionary = std::move(outer);
    }
    return dictionary;
}

TEST(Nesting, KeysInKeysAreComparedAndDescribed) {
    confined([] { equal(keysInKeys(1000).get(), keysInKeys(1000).get()); });
    confined(
        [] { equal(keysInKeys(kManyDictionaries).get(), keysInKeys(kManyDictionaries).get()); });
    confined([] {
        const auto dictionary = keysInKeys(kManyDictionaries);
        CFHash(dictionary.get());
        own(CFCopyDescription(dictionary.get()));
        EXPECT_FALSE(isValid(dictionary.get()));
        EXPECT_FALSE(writeDocument(dictionary.get()));
    });
}

TEST(Nesting, ContainersThatHoldThemselvesAreDescribedAndCompared) {
    confined([] {
        const auto one = makeDictionary();
        const auto other = makeDictionary();
        CFDictionarySetValue(one.get(), CFSTR("self"), one.get());
        CFDictionarySetValue(other.get(), CFSTR("self"), other.get());
        own(CFCopyDescription(one.get()));
        CFHash(one.get());
        EXPECT_TRUE(equal(one.get(), one.get()));
        CFDictionaryRemoveAllValues(one.get());
        CFDictionaryRemoveAllValues(other.get());
    });
}

}  // namespace
}  // namespace qv::tests
