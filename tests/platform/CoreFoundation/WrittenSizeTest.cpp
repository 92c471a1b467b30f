// SPDX-License-Identifier: Apache-2.0

// Shows that a document is refused if its XML document would take more than 512 MiB, and is loaded
// if its XML document takes exactly 512 MiB. The limit is the same for every kind of document and
// for the writer.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/CoreFoundation/Documents.h"
#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

constexpr std::size_t kLimit = std::size_t{512} << 20;

// A kind of document whose XML document is much larger: an array of `count` equal values and the
// string `tail`.
struct Kind {
    const char* name;
    std::string (*document)(std::size_t count, const std::string& tail);
};

constexpr std::size_t kDepth = 500;

const Kind kKinds[] = {
    {"binary",
     [](std::size_t count, const std::string& tail) {
         BinaryDocument document;
         std::vector<std::uint64_t> references(count, 1);
         references.push_back(2);
         document.addArray(references);
         document.addString(std::string(20000, '&'));
         document.addString(tail);
         return document.bytes();
     }},
    {"XML",
     [](std::size_t count, const std::string& tail) {
         return "<plist>" + repeated("<array>", kDepth) + repeated("<true/>", count) + "<string>" +
                tail + "</string>" + repeated("</array>", kDepth) + "</plist>";
     }},
    {"old style",
     [](std::size_t count, const std::string& tail) {
         return repeated("(", kDepth) + repeated("a,", count) + "\"" + tail + "\"" +
                repeated(")", kDepth);
     }},
};

// Returns a document of the kind whose XML document takes `size` bytes.
std::string documentThatTakes(const Kind& kind, std::size_t size) {
    const auto written = [&kind](std::size_t count) {
        return writeDocument(readDocument(kind.document(count, "")).get()).value().size();
    };
    const std::size_t none = written(0);
    const std::size_t each = written(1) - none;
    const std::size_t count = (size - none) / each;
    return kind.document(count, std::string(size - none - count * each, 't'));
}

TEST(WrittenSize, LimitIsTheSameForEveryKindOfDocument) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        EXPECT_TRUE(readDocument(documentThatTakes(kind, kLimit)));
        EXPECT_FALSE(readDocument(documentThatTakes(kind, kLimit + 1)));
        EXPECT_FALSE(readDocument(documentThatTakes(kind, 2 * kLimit)));
    }
}

TEST(WrittenSize, ReasonOfTheRefusalNamesTheLimit) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        CFStringRef given = nullptr;
        const auto document = makeData(documentThatTakes(kind, kLimit + 1));
        EXPECT_FALSE(
            own(CFPropertyListCreateFromXMLData(kCFAllocatorDefault, document.get(), 0, &given)));
        const auto reason = own(given);
        ASSERT_TRUE(reason);
        EXPECT_NE(utf8Of(given)->find("more than 512 MiB"), std::string::npos) << *utf8Of(given);
    }
}

TEST(WrittenSize, WriterRefusesATreeBeyondTheLimit) {
    const auto tree = readDocument(documentThatTakes(kKinds[0], kLimit));
    ASSERT_TRUE(tree);
    EXPECT_EQ(
        CFDataGetLength(own(CFPropertyListCreateXMLData(kCFAllocatorDefault, tree.get())).get()),
        static_cast<CFIndex>(kLimit));
    CFArrayAppendValue(const_cast<CFMutableArrayRef>(static_cast<CFArrayRef>(tree.get())),
                       kCFBooleanTrue);
    EXPECT_FALSE(own(CFPropertyListCreateXMLData(kCFAllocatorDefault, tree.get())));
    CFErrorRef given = nullptr;
    EXPECT_FALSE(own(CFPropertyListCreateData(kCFAllocatorDefault, tree.get(),
                                              kCFPropertyListXMLFormat_v1_0, 0, &given)));
    EXPECT_TRUE(own(given));
}

TEST(WrittenSize, ServicesThatShareALongAddressAreLoaded) {
    const std::string document = servicesWithOneAddress(10000, std::string(5000, 'a'));
    ASSERT_LT(document.size(), 230000U);
    const auto tree = readDocument(document);
    ASSERT_TRUE(tree);
    const auto xml = writeDocument(tree.get());
    ASSERT_TRUE(xml);
    EXPECT_GT(xml->size(), 10000U * 5000U);
    EXPECT_TRUE(equal(readDocument(*xml).get(), tree.get()));
}

// The writer drops lone surrogates. They count nevertheless, since the reader looks at each
// reference to the string.
TEST(WrittenSize, LoneSurrogatesCount) {
    BinaryDocument document;
    document.addArray(std::vector<std::uint64_t>(100000, 1));
    document.add(BinaryDocument::head(0x60, 10000) + repeated(std::string("\xd8\x00", 2), 10000));
    EXPECT_FALSE(readDocument(document.bytes()));
}

}  // namespace
}  // namespace qv::tests
