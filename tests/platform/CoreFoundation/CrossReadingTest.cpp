// Shows that other readers read a written document as the same tree: libplist, and plistlib of
// Python, which uses a conforming XML parser.

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
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

std::string utf8(const std::u16string& units) {
    return utf8Of(makeString(units).get()).value();
}

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

json integerNode(const std::string& digits) {
    return node("integer", digits);
}
json realNode(double number) {
    return node("real", bitsOf(number));
}
json dateNode(double seconds) {
    return node("date", static_cast<std::int64_t>(seconds));
}
json dataNode(const std::string& bytes) {
    return node("data", toHex(bytes));
}
json uidNode(std::uint64_t value) {
    // XML has no UID, so a UID is written as a dictionary.
    return node("dict", node("CF$UID", integerNode(std::to_string(value))));
}

// Returns the tree that a reader of the written document must find. `text` converts a string.
template <class Text>
json nodeOf(const Tree& tree, const Text& text) {
    switch (tree.kind) {
        case Tree::Kind::kString:
            return node("string", text(tree.text));
        case Tree::Kind::kInteger:
            return integerNode(tree.bytes);
        case Tree::Kind::kReal:
            return realNode(tree.number == 0 ? 0 : tree.number);
        case Tree::Kind::kBoolean:
            return node("boolean", tree.count != 0);
        case Tree::Kind::kDate:
            return dateNode(std::floor(tree.number));
        case Tree::Kind::kData:
            return dataNode(tree.bytes);
        case Tree::Kind::kArray: {
            json array = json::array();
            for (const Tree& element : tree.elements) {
                array.push_back(nodeOf(element, text));
            }
            return node("array", std::move(array));
        }
        case Tree::Kind::kDictionary: {
            json entries = json::object();
            for (std::size_t key = 0; key < tree.elements.size(); key += 2) {
                entries[text(tree.elements[key].text)] = nodeOf(tree.elements[key + 1], text);
            }
            return node("dict", std::move(entries));
        }
        case Tree::Kind::kUid:
            return uidNode(tree.count);
        default:
            return "unexpected";
    }
}

// Returns the reason why the document of the tree is not XML, or nothing if it is XML.
std::string whyNotXml(const Tree& tree) {
    const bool hasCharacter = fuzz::anyNode(tree, [](const Tree& node) {
        for (const char16_t unit : node.text) {
            const bool isSpace = unit == '\t' || unit == '\n' || unit == '\r';
            if ((unit < 0x20 && !isSpace) || unit == 0xFFFE || unit == 0xFFFF) {
                return true;
            }
        }
        return false;
    });
    if (hasCharacter) {
        return "XML has no such character";
    }
    const bool hasSurrogate =
        fuzz::anyNode(tree, [](const Tree& node) { return !fuzz::isWellFormed(node.text); });
    return hasSurrogate ? "a lone surrogate is lost" : "";
}

// Returns the reason why no reader can read a date of the tree back, or nothing.
std::string whyNotADate(const Tree& tree) {
    const bool isOutside = fuzz::anyNode(tree, [](const Tree& node) {
        return node.kind == Tree::Kind::kDate && !fuzz::canBeExpressed(node.number);
    });
    return isOutside ? "a year does not have four digits" : "";
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

// Compares each tree that a peer reads with the expected one. `read` returns the tree of the peer,
// and `expect` the expected one. `whyNot` returns the reason to skip a document, or nothing.
struct Count {
    int compared = 0;
    std::map<std::string, int> skipped;
};

template <class Read, class Expect, class WhyNot>
Count compareAll(const Trees& trees, Read read, Expect expect, WhyNot whyNot) {
    Count count;
    for (const Trees::Document& document : trees.documents()) {
        SCOPED_TRACE(document.name);
        const std::string reason = whyNot(document.tree);
        if (!reason.empty()) {
            ++count.skipped[reason];
            continue;
        }
        EXPECT_EQ(read(document), expect(document.tree)) << document.xml;
        ++count.compared;
    }
    for (const auto& [reason, number] : count.skipped) {
        std::printf("%d not compared: %s\n", number, reason.c_str());
    }
    return count;
}

json nodeOf(plist_t item) {
    switch (plist_get_node_type(item)) {
        case PLIST_BOOLEAN: {
            std::uint8_t value = 0;
            plist_get_bool_val(item, &value);
            return node("boolean", value != 0);
        }
        case PLIST_UINT: {
            std::uint64_t value = 0;
            plist_get_uint_val(item, &value);
            return integerNode(std::to_string(value));
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(item, &value);
            return realNode(value == 0 ? 0 : value);
        }
        case PLIST_STRING: {
            std::uint64_t length = 0;
            const char* const text = plist_get_string_ptr(item, &length);
            return node("string", std::string(text, length));
        }
        case PLIST_DATA: {
            std::uint64_t length = 0;
            const char* const bytes = plist_get_data_ptr(item, &length);
            return dataNode(std::string(bytes, length));
        }
        case PLIST_DATE: {
            std::int32_t seconds = 0;
            std::int32_t microseconds = 0;
            plist_get_date_val(item, &seconds, &microseconds);
            return dateNode(seconds);
        }
        case PLIST_ARRAY: {
            json array = json::array();
            for (std::uint32_t index = 0; index < plist_array_get_size(item); ++index) {
                array.push_back(nodeOf(plist_array_get_item(item, index)));
            }
            return node("array", std::move(array));
        }
        case PLIST_DICT: {
            json entries = json::object();
            plist_dict_iter iterator = nullptr;
            plist_dict_new_iter(item, &iterator);
            for (;;) {
                char* key = nullptr;
                plist_t value = nullptr;
                plist_dict_next_item(item, iterator, &key, &value);
                if (value == nullptr) {
                    break;
                }
                entries[key] = nodeOf(value);
                std::free(key);
            }
            std::free(iterator);
            return node("dict", std::move(entries));
        }
        case PLIST_UID: {
            std::uint64_t value = 0;
            plist_get_uid_val(item, &value);
            return uidNode(value);
        }
        default:
            return "unexpected";
    }
}

// Returns the tree as libplist reads it: without the signs of whole numbers.
Tree withoutSigns(Tree tree) {
    if (tree.kind == Tree::Kind::kInteger && tree.bytes[0] == '-') {
        tree.bytes = std::to_string(static_cast<std::uint64_t>(std::stoll(tree.bytes)));
    }
    for (Tree& element : tree.elements) {
        element = withoutSigns(element);
    }
    return tree;
}

TEST(CrossReading, LibplistReadsWrittenDocuments) {
    const Trees trees;
    const auto read = [](const Trees::Document& document) -> json {
        plist_t root = nullptr;
        plist_from_xml(document.xml.data(), static_cast<std::uint32_t>(document.xml.size()), &root);
        const std::unique_ptr<void, void (*)(plist_t)> owner(root, plist_free);
        return root != nullptr ? nodeOf(root) : json("refused");
    };
    const auto expect = [](const Tree& tree) { return nodeOf(withoutSigns(tree), utf8); };
    const auto whyNot = [](const Tree& tree) -> std::string {
        if (!whyNotXml(tree).empty()) {
            return whyNotXml(tree);
        }
        const bool isFar = fuzz::anyNode(tree, [](const Tree& node) {
            return node.kind == Tree::Kind::kDate && !(std::abs(node.number) < 0x7FFFFFFF);
        });
        return isFar ? "libplist's dates have 32 bits" : "";
    };
    EXPECT_GT(compareAll(trees, read, expect, whyNot).compared, 500);
}

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

// Converts each line end to a line feed, as every XML parser does.
std::string withPlainLineEnds(const std::u16string& units) {
    std::string text;
    for (const char character : utf8(units)) {
        if (character == '\n' && !text.empty() && text.back() == '\r') {
            text.back() = '\n';
        } else {
            text += character;
        }
    }
    std::replace(text.begin(), text.end(), '\r', '\n');
    return text;
}

TEST(CrossReading, PythonReadsWrittenDocuments) {
    const Trees trees;
    const TemporaryDirectory directory;
    for (const Trees::Document& document : trees.documents()) {
        std::ofstream(directory.path(document.name + ".plist"), std::ios::binary) << document.xml;
    }
    const auto found = readWithPython(directory.path());
    ASSERT_EQ(found.size(), trees.documents().size());
    const auto read = [&found](const Trees::Document& document) { return found.at(document.name); };
    const auto expect = [](const Tree& tree) { return nodeOf(tree, withPlainLineEnds); };
    const auto whyNot = [](const Tree& tree) -> std::string {
        return !whyNotXml(tree).empty() ? whyNotXml(tree) : whyNotADate(tree);
    };
    EXPECT_GT(compareAll(trees, read, expect, whyNot).compared, 500);
}

}  // namespace
}  // namespace qv::tests
