// Shows that another reader reads a written document as the same tree: plistlib of Python, which
// uses a conforming XML parser.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "CoreFoundation/Tree.h"
#include "gen_lite/Hex.h"
#include "platform/CoreFoundation/Base64.h"
#include "platform/CoreFoundation/MeasuredDocuments.h"
#include "platform/CoreFoundation/Objects.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

using fuzz::Tree;
using nlohmann::json;

std::string bitsOf(double number) {
    if (std::isnan(number)) {
        return "nan";
    }
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(bits));
    return digits;
}

// Converts each line end to a line feed, as every XML parser does.
std::string withPlainLineEnds(const std::u16string& units) {
    const std::string written = utf8Of(makeString(units).get()).value();
    std::string text;
    for (const char character : written) {
        if (character == '\n' && !text.empty() && text.back() == '\r') {
            text.back() = '\n';
        } else {
            text += character;
        }
    }
    std::replace(text.begin(), text.end(), '\r', '\n');
    return text;
}

// Returns the tree that the reader of the written document must find.
json nodeOf(const Tree& tree) {
    switch (tree.kind) {
        case Tree::Kind::kString:
            return node("string", withPlainLineEnds(tree.text));
        case Tree::Kind::kInteger:
            return node("integer", tree.bytes);
        case Tree::Kind::kReal:
            return node("real", bitsOf(tree.number == 0 ? 0 : tree.number));
        case Tree::Kind::kBoolean:
            return node("boolean", tree.count != 0);
        case Tree::Kind::kDate:
            return node("date", static_cast<std::int64_t>(std::floor(tree.number)));
        case Tree::Kind::kData:
            return node("data", toHex(tree.bytes));
        case Tree::Kind::kArray: {
            json array = json::array();
            for (const Tree& element : tree.elements) {
                array.push_back(nodeOf(element));
            }
            return node("array", std::move(array));
        }
        case Tree::Kind::kDictionary: {
            json entries = json::object();
            for (std::size_t key = 0; key < tree.elements.size(); key += 2) {
                entries[withPlainLineEnds(tree.elements[key].text)] =
                    nodeOf(tree.elements[key + 1]);
            }
            return node("dict", std::move(entries));
        }
        case Tree::Kind::kUid:
            // XML has no UID, so a UID is written as a dictionary.
            return node("dict", node("CF$UID", node("integer", std::to_string(tree.count))));
        default:
            return "unexpected";
    }
}

// Returns why Python cannot read the document of the tree back as it was, or nothing.
std::string whyNotComparable(const Tree& tree) {
    const bool hasCharacter = fuzz::anyNode(tree, [](const Tree& node) {
        for (const char16_t unit : node.text) {
            const bool isSpace = unit == '\t' || unit == '\n' || unit == '\r';
            if ((unit < 0x20 && !isSpace) || unit == 0xFFFE || unit == 0xFFFF) {
                return true;
            }
        }
        return false;
    });
    const bool hasSurrogate =
        fuzz::anyNode(tree, [](const Tree& node) { return !fuzz::isWellFormed(node.text); });
    return hasCharacter                       ? "XML has no such character"
           : hasSurrogate                     ? "a lone surrogate is lost"
           : fuzz::hasInexpressibleDate(tree) ? "a year does not have four digits"
                                              : "";
}

// Holds the trees of the measured documents, and random trees.
class Trees {
  public:
    Trees() {
        for (const char* const name : {"plist-cases.jsonl", "plist-damaged.jsonl"}) {
            std::ifstream file(QV_TEST_DATA_DIR "/" + std::string(name));
            for (std::string line; std::getline(file, line);) {
                const json vector = json::parse(line);
                add(vector["name"], readDocument(fromBase64(vector["input"].get<std::string>())));
            }
        }
        const std::size_t measured = documents_.size();
        for (unsigned seed = 0; seed < 300; ++seed) {
            std::mt19937 random(seed);
            add("seed-" + std::to_string(seed), randomTree(random, 4));
        }
        EXPECT_GT(measured, 450U);
        EXPECT_EQ(documents_.size(), measured + 300);
    }

    struct Document {
        std::string name;
        Tree tree;
        std::string xml;
    };
    const std::vector<Document>& documents() const { return documents_; }

  private:
    void add(const std::string& name, const Owned<>& object) {
        const auto xml = object ? writeDocument(object.get()) : std::nullopt;
        if (xml) {
            documents_.push_back({name, fuzz::treeOf(object.get()), *xml});
        }
    }

    static Owned<> randomTree(std::mt19937& random, int depth) {
        const auto below = [&random](std::uint32_t limit) { return random() % limit; };
        const auto bits = [&random] {
            return static_cast<std::uint64_t>(random()) << 32 | random();
        };
        switch (below(depth == 0 ? 6 : 10)) {
            case 0:
                return own<CFTypeRef>(makeString(randomText(random)).release());
            case 1:
                return own<CFTypeRef>(
                    makeInteger(static_cast<std::int64_t>(bits()) >> below(64)).release());
            case 2: {
                const std::uint64_t pattern = bits();
                double number = 0;
                std::memcpy(&number, &pattern, sizeof number);
                return own<CFTypeRef>(makeReal(number).release());
            }
            case 3:
                return own<CFTypeRef>(below(2) == 0 ? kCFBooleanTrue : kCFBooleanFalse);
            case 4: {
                // Most dates are of the last and of this century. Some are a quarter of a second
                // past a second.
                const std::int64_t range = below(8) == 0 ? 60000000000 : 2000000000;
                const auto seconds = static_cast<double>(static_cast<std::int64_t>(bits()) % range);
                return own<CFTypeRef>(makeDate(seconds + (below(3) == 0 ? 0.25 : 0)).release());
            }
            case 5: {
                std::string bytes(below(200), '\0');
                for (char& byte : bytes) {
                    byte = static_cast<char>(below(256));
                }
                return own<CFTypeRef>(makeData(bytes).release());
            }
            case 6:
            case 7: {
                auto array = makeArray();
                for (std::uint32_t count = below(8); count != 0; --count) {
                    CFArrayAppendValue(array.get(), randomTree(random, depth - 1).get());
                }
                return own<CFTypeRef>(array.release());
            }
            default: {
                auto dictionary = makeDictionary();
                for (std::uint32_t count = below(8); count != 0; --count) {
                    CFDictionarySetValue(dictionary.get(), makeString(randomText(random)).get(),
                                         randomTree(random, depth - 1).get());
                }
                return own<CFTypeRef>(dictionary.release());
            }
        }
    }

    static std::u16string randomText(std::mt19937& random) {
        std::u16string text;
        for (std::uint32_t count = random() % 20; count != 0; --count) {
            const std::uint32_t kind = random() % 8;
            if (kind == 0) {
                text += static_cast<char16_t>(u"<>&'\" \t\n]"[random() % 9]);
            } else if (kind == 1) {
                text += static_cast<char16_t>(0xA0 + random() % 0xD700);
            } else if (kind == 2) {
                text += static_cast<char16_t>(0xD800 + random() % 0x400);
                text += static_cast<char16_t>(0xDC00 + random() % 0x400);
            } else {
                text += static_cast<char16_t>(0x20 + random() % 0x5F);
            }
        }
        return text;
    }

    std::vector<Document> documents_;
};

// Returns the trees that Python reads from the files of a folder.
std::map<std::string, json> readWithPython(const std::string& folder) {
    const std::string command = QV_PYTHON " " QV_READ_BACK " '" + folder + "'";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(::popen(command.c_str(), "r"),
                                                                 ::pclose);
    std::string text;
    char buffer[4096];
    while (output != nullptr) {
        const std::size_t count = std::fread(buffer, 1, sizeof buffer, output.get());
        if (count == 0) {
            break;
        }
        text.append(buffer, count);
    }
    std::map<std::string, json> trees;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto tab = line.find('\t');
        const std::string tree = line.substr(tab + 1);
        trees[line.substr(0, tab)] = tree == "refused" ? json(tree) : json::parse(tree);
    }
    return trees;
}

TEST(CrossReading, PythonReadsWrittenDocuments) {
    const Trees trees;
    const TemporaryDirectory directory;
    for (const Trees::Document& document : trees.documents()) {
        std::ofstream(directory.path(document.name + ".plist"), std::ios::binary) << document.xml;
    }
    const auto found = readWithPython(directory.path());
    ASSERT_EQ(found.size(), trees.documents().size());
    int compared = 0;
    std::map<std::string, int> skipped;
    for (const Trees::Document& document : trees.documents()) {
        const std::string reason = whyNotComparable(document.tree);
        if (reason.empty()) {
            EXPECT_EQ(found.at(document.name), nodeOf(document.tree)) << document.xml;
            ++compared;
        } else {
            ++skipped[reason];
        }
    }
    for (const auto& [reason, number] : skipped) {
        std::printf("%d not compared: %s\n", number, reason.c_str());
    }
    EXPECT_GT(compared, 500);
}

}  // namespace
}  // namespace qv::tests
