// SPDX-License-Identifier: Apache-2.0

// Compares the trees and the written documents of the measured documents with the recorded ones.
// Both functions read each document, with every option.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "CoreFoundation/Tree.h"
#include "platform/CoreFoundation/Base64.h"
#include "platform/CoreFoundation/MeasuredDocuments.h"
#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

using fuzz::Tree;
using nlohmann::json;

// Formats a number like %a in C.
std::string hexadecimal(double number) {
    char text[64];
    std::snprintf(text, sizeof text, "%a", number);
    // The sign of a NaN has no meaning.
    return number == number ? text : "nan";
}

json numberNode(const char* kind, json value, const Tree& tree) {
    json object = node(kind, std::move(value));
    object["sint32"] = tree.sint32 ? json(*tree.sint32) : json(nullptr);
    return object;
}

json stringNode(const std::u16string& units) {
    if (fuzz::isWellFormed(units)) {
        return node("string", *utf8Of(makeString(units).get()));
    }
    return node("utf16", hexOf(units));
}

// Returns the tree in the form of the recorded trees.
json nodeOf(const Tree& tree) {
    switch (tree.kind) {
        case Tree::Kind::kString:
            return stringNode(tree.text);
        case Tree::Kind::kInteger:
            return numberNode("integer", tree.bytes, tree);
        case Tree::Kind::kReal:
            return numberNode("real", hexadecimal(tree.number), tree);
        case Tree::Kind::kBoolean:
            return node("boolean", tree.count != 0);
        case Tree::Kind::kDate:
            return node("date", hexadecimal(tree.number));
        case Tree::Kind::kData:
            return node("data", toBase64(tree.bytes));
        case Tree::Kind::kArray: {
            json array = json::array();
            for (const Tree& element : tree.elements) {
                array.push_back(nodeOf(element));
            }
            return node("array", std::move(array));
        }
        case Tree::Kind::kDictionary: {
            json entries = json::array();
            for (std::size_t key = 0; key < tree.elements.size(); key += 2) {
                json entry = json::array();
                entry.push_back(nodeOf(tree.elements[key]));
                entry.push_back(nodeOf(tree.elements[key + 1]));
                entries.push_back(std::move(entry));
            }
            return node("dict", std::move(entries));
        }
        case Tree::Kind::kUid:
            return node("uid", tree.count);
        case Tree::Kind::kNull:
            return node("null", true);
        case Tree::Kind::kSet:
            return node("set", tree.count);
        default:
            return node("unknown", true);
    }
}

struct Reading {
    Owned<> tree;
    std::optional<CFPropertyListFormat> format;
};

using Read = std::function<Reading(CFDataRef document)>;

Read readAsXml(CFPropertyListMutabilityOptions option) {
    return [option](CFDataRef document) {
        CFStringRef given = nullptr;
        auto tree =
            own(CFPropertyListCreateFromXMLData(kCFAllocatorDefault, document, option, &given));
        const auto reason = own(given);
        EXPECT_NE(static_cast<bool>(tree), static_cast<bool>(reason));
        return Reading{std::move(tree), std::nullopt};
    };
}

Read readWithData(CFPropertyListMutabilityOptions option) {
    return [option](CFDataRef document) {
        CFPropertyListFormat format = {};
        CFErrorRef given = nullptr;
        auto tree = own(
            CFPropertyListCreateWithData(kCFAllocatorDefault, document, option, &format, &given));
        const auto error = own(given);
        EXPECT_NE(static_cast<bool>(tree), static_cast<bool>(error));
        return Reading{std::move(tree), format};
    };
}

// Returns the format of a measured document that is not refused.
CFPropertyListFormat kindOf(const std::string& document) {
    const auto beginsWith = [&document](const std::string& text) {
        return document.compare(0, text.size(), text) == 0;
    };
    // The exception is a string of letters and digits in the old style.
    if (beginsWith("bplist0") && document != "bplist00list00") {
        return kCFPropertyListBinaryFormat_v1_0;
    }
    const bool isData = document == "<>" || beginsWith("<0fbd");
    // Skips the byte-order mark. A NUL is half of a wide character.
    const auto start = document.find_first_not_of(std::string(" \t\r\n\xef\xbb\xbf\xff\xfe\0", 10));
    const bool isTag = start != std::string::npos && document[start] == '<';
    return !isData && isTag ? kCFPropertyListXMLFormat_v1_0 : kCFPropertyListOpenStepFormat;
}

void checkVector(const json& vector, const Read& read) {
    const std::string document = fromBase64(vector["input"].get<std::string>());
    const Reading reading = read(makeData(document).get());
    const CFTypeRef tree = reading.tree.get();
    ASSERT_EQ(tree != nullptr, vector["parsed"].get<bool>());
    if (tree == nullptr) {
        return;
    }
    if (reading.format) {
        EXPECT_EQ(*reading.format, kindOf(document));
    }
    EXPECT_EQ(CFPropertyListIsValid(tree, kCFPropertyListBinaryFormat_v1_0) != FALSE,
              vector["valid"].get<bool>());
    const auto xml = writeDocument(tree);
    EXPECT_EQ(CFPropertyListIsValid(tree, kCFPropertyListXMLFormat_v1_0) != FALSE, xml.has_value());
    const bool hasTree = vector.contains("tree");
    const bool hasXml = vector.contains("xml");
    if (hasTree) {
        EXPECT_EQ(nodeOf(fuzz::treeOf(tree)), vector["tree"]);
    }
    // Neither was recorded for a deeply nested tree.
    if (hasTree || hasXml) {
        ASSERT_EQ(xml.has_value(), hasXml);
    }
    if (hasXml) {
        EXPECT_EQ(*xml, vector["xml"].get<std::string>());
    }
}

// Checks every document of a file with one way of reading.
void checkFile(const std::string& name, int expectedCount, const Read& read) {
    std::ifstream file(QV_TEST_DATA_DIR "/" + name);
    int count = 0;
    for (std::string line; std::getline(file, line); ++count) {
        const json vector = parseMeasured(line);
        SCOPED_TRACE(vector["name"].get<std::string>());
        checkVector(vector, read);
    }
    EXPECT_EQ(count, expectedCount);
}

class PropertyListVectors : public testing::TestWithParam<CFPropertyListMutabilityOptions> {
  protected:
    static void checkAll(const Read& read) {
        for (const auto& [file, count] : kMeasuredDocuments) {
            checkFile(file, count, read);
        }
    }
};

TEST_P(PropertyListVectors, FromXmlDataReadsTheRecordedTrees) {
    checkAll(readAsXml(GetParam()));
}

TEST_P(PropertyListVectors, WithDataReadsTheRecordedTrees) {
    checkAll(readWithData(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Options, PropertyListVectors,
                         testing::Values(kCFPropertyListImmutable, kCFPropertyListMutableContainers,
                                         kCFPropertyListMutableContainersAndLeaves));

}  // namespace
}  // namespace qv::tests
