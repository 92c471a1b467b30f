// SPDX-License-Identifier: Apache-2.0

// Shows that a document is refused if its XML document would take more than 512 MiB, and is loaded
// if its XML document takes exactly 512 MiB. The limit is the same for every kind of document and
// for the writer. The reason of the refusal names the limit.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/CoreFoundation/Documents.h"
#include "platform/CoreFoundation/Objects.h"
#include "support/UsualOrReduced.h"

namespace qv::tests {
namespace {

constexpr std::size_t kLimit = std::size_t{512} << 20;

// A kind of document whose XML document is much larger: containers inside each other around `count`
// equal values and the string `tail`. The XML document indents each value by the depth, so few
// values fill it.
struct Kind {
    const char* name;
    std::string (*document)(std::size_t count, const std::string& tail);
};

constexpr std::size_t kDepth = 1000;
constexpr std::size_t kOldStyleDepth = 500;

const Kind kKinds[] = {
    {"binary",
     [](std::size_t count, const std::string& tail) {
         BinaryDocument document = nestedArrays(kDepth - 1);
         std::vector<std::uint64_t> references(count, kDepth);
         references.push_back(kDepth + 1);
         document.addArray(references);
         document.addString("a");
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
         return repeated("(", kOldStyleDepth) + repeated("a,", count) + "\"" + tail + "\"" +
                repeated(")", kOldStyleDepth);
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

void expectRefusedAsTooLarge(const std::string& document) {
    CFStringRef given = nullptr;
    EXPECT_FALSE(own(
        CFPropertyListCreateFromXMLData(kCFAllocatorDefault, makeData(document).get(), 0, &given)));
    const auto reason = own(given);
    ASSERT_TRUE(reason);
    EXPECT_NE(utf8Of(given)->find("more than 512 MiB"), std::string::npos) << *utf8Of(given);
}

TEST(WrittenSize, LimitIsTheSameForEveryKindOfDocument) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        EXPECT_TRUE(readDocument(documentThatTakes(kind, kLimit)));
        expectRefusedAsTooLarge(documentThatTakes(kind, kLimit + 1));
        expectRefusedAsTooLarge(documentThatTakes(kind, 2 * kLimit));
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
    CFErrorRef given = nullptr;
    EXPECT_FALSE(own(CFPropertyListCreateData(kCFAllocatorDefault, tree.get(),
                                              kCFPropertyListXMLFormat_v1_0, 0, &given)));
    EXPECT_TRUE(own(given));
}

TEST(WrittenSize, ServicesThatShareALongAddressAreLoaded) {
    constexpr std::size_t kCount = usualOrReduced(10'000, 1'000);
    constexpr std::size_t kLength = 5000;
    const std::string document = servicesWithOneAddress(kCount, std::string(kLength, 'a'));
    ASSERT_LT(document.size(), 230000U);
    const auto tree = readDocument(document);
    ASSERT_TRUE(tree);
    const auto xml = writeDocument(tree.get());
    ASSERT_TRUE(xml);
    EXPECT_GT(xml->size(), kCount * kLength);
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
