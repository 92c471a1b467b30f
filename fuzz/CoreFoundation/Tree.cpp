// SPDX-License-Identifier: Apache-2.0

#include "CoreFoundation/Tree.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>
#include <utility>

#include "platform/CoreFoundation/Objects.h"

namespace qv::fuzz {
namespace {

using Kind = Tree::Kind;

bool sameNumber(double one, double other) {
    if (std::isnan(one) || std::isnan(other)) {
        return std::isnan(one) && std::isnan(other);
    }
    return one == other && std::signbit(one) == std::signbit(other);
}

Tree numberOf(CFNumberRef number) {
    Tree tree;
    std::int32_t sint32 = 0;
    if (CFNumberGetValue(number, kCFNumberSInt32Type, &sint32) != FALSE) {
        tree.sint32 = sint32;
    }
    if (CFNumberIsFloatType(number) != FALSE) {
        tree.kind = Kind::kReal;
        CFNumberGetValue(number, kCFNumberFloat64Type, &tree.number);
        return tree;
    }
    tree.kind = Kind::kInteger;
    std::int64_t value = 0;
    const bool fits = CFNumberGetValue(number, kCFNumberSInt64Type, &value) != FALSE;
    // A number that does not fit is over 2^63-1, and CFNumberGetValue() returns its low bits.
    tree.bytes = fits ? std::to_string(value) : std::to_string(static_cast<std::uint64_t>(value));
    return tree;
}

Tree dictionaryOf(CFDictionaryRef dictionary) {
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    std::vector<std::pair<Tree, Tree>> entries;
    entries.reserve(count);
    for (std::size_t entry = 0; entry < count; ++entry) {
        entries.emplace_back(treeOf(keys[entry]), treeOf(values[entry]));
    }
    std::sort(entries.begin(), entries.end(), [](const auto& one, const auto& other) {
        return std::tie(one.first.kind, one.first.text, one.first.bytes) <
               std::tie(other.first.kind, other.first.text, other.first.bytes);
    });
    Tree tree;
    tree.kind = Kind::kDictionary;
    tree.elements.reserve(2 * count);
    for (auto& [key, value] : entries) {
        tree.elements.push_back(std::move(key));
        tree.elements.push_back(std::move(value));
    }
    return tree;
}

// Returns a dictionary as a reader builds it from the entries. Of equal keys the last one counts.
Tree dictionaryRead(std::vector<Tree> entries) {
    std::map<std::u16string, std::size_t> places;
    for (std::size_t entry = 0; entry < entries.size(); entry += 2) {
        places[entries[entry].text] = entry;
    }
    Tree tree;
    tree.kind = Kind::kDictionary;
    for (const auto& [key, entry] : places) {
        tree.elements.push_back(std::move(entries[entry]));
        tree.elements.push_back(std::move(entries[entry + 1]));
    }
    if (tree.elements.size() != 2 || tree.elements[0].text != u"CF$UID") {
        return tree;
    }
    const Tree& value = tree.elements[1];
    Tree uid;
    uid.kind = Kind::kUid;
    if (value.kind == Kind::kInteger) {
        // The UID has the low bits of the number, which may be negative or over 2^63-1.
        uid.count = static_cast<std::uint32_t>(value.bytes[0] == '-' ? std::stoll(value.bytes)
                                                                     : std::stoull(value.bytes));
        return uid;
    }
    if (value.kind == Kind::kReal) {
        if (!(value.number > -1 && value.number < 0x80000000)) {
            uid.kind = Kind::kAny;
        } else {
            uid.count = static_cast<std::uint64_t>(value.number);
        }
        return uid;
    }
    return tree;
}

// The depth to which documents are read and written.
constexpr int kDeepest = 1024;

// Returns the depth of the document of the tree, in which a UID is a dictionary.
int depthOf(const Tree& tree) {
    int deepest = 0;
    for (const Tree& element : tree.elements) {
        deepest = std::max(deepest, depthOf(element));
    }
    const bool isContainer =
        tree.kind == Kind::kArray || tree.kind == Kind::kDictionary || tree.kind == Kind::kUid;
    return deepest + (isContainer ? 1 : 0);
}

}  // namespace

bool operator==(const Tree& one, const Tree& other) {
    if (one.kind == Kind::kAny || other.kind == Kind::kAny) {
        return true;
    }
    return one.kind == other.kind && one.text == other.text && one.bytes == other.bytes &&
           sameNumber(one.number, other.number) && one.count == other.count &&
           one.sint32 == other.sint32 && one.elements == other.elements;
}

Tree treeOf(CFTypeRef object) {
    const CFTypeID type = CFGetTypeID(object);
    Tree tree;
    if (type == CFStringGetTypeID()) {
        tree.kind = Kind::kString;
        tree.text = tests::unitsOf(static_cast<CFStringRef>(object));
    } else if (type == CFNumberGetTypeID()) {
        tree = numberOf(static_cast<CFNumberRef>(object));
    } else if (type == CFBooleanGetTypeID()) {
        tree.kind = Kind::kBoolean;
        tree.count = CFBooleanGetValue(static_cast<CFBooleanRef>(object));
    } else if (type == CFDateGetTypeID()) {
        tree.kind = Kind::kDate;
        tree.number = CFDateGetAbsoluteTime(static_cast<CFDateRef>(object));
    } else if (type == CFDataGetTypeID()) {
        tree.kind = Kind::kData;
        tree.bytes = tests::bytesOf(static_cast<CFDataRef>(object));
    } else if (type == CFArrayGetTypeID()) {
        tree.kind = Kind::kArray;
        const auto* const array = static_cast<CFArrayRef>(object);
        for (CFIndex index = 0; index < CFArrayGetCount(array); ++index) {
            tree.elements.push_back(treeOf(CFArrayGetValueAtIndex(array, index)));
        }
    } else if (type == CFDictionaryGetTypeID()) {
        tree = dictionaryOf(static_cast<CFDictionaryRef>(object));
    } else if (type == _CFKeyedArchiverUIDGetTypeID()) {
        tree.kind = Kind::kUid;
        tree.count = _CFKeyedArchiverUIDGetValue(static_cast<CFKeyedArchiverUIDRef>(object));
    } else if (type == CFNullGetTypeID()) {
        tree.kind = Kind::kNull;
    } else if (type == CFSetGetTypeID()) {
        tree.kind = Kind::kSet;
        tree.count = static_cast<std::uint64_t>(CFSetGetCount(static_cast<CFSetRef>(object)));
    }
    return tree;
}

Tree readBack(const Tree& tree) {
    Tree back = tree;
    for (Tree& element : back.elements) {
        element = readBack(element);
    }
    if (tree.kind == Kind::kString) {
        if (!isWellFormed(tree.text)) {
            back.kind = Kind::kAny;
        } else if (!tree.text.empty() && tree.text[0] == 0xFEFF) {
            back.text.erase(0, 1);
        }
    } else if (tree.kind == Kind::kReal) {
        if (back.number == 0) {
            back.number = 0;
        }
    } else if (tree.kind == Kind::kDate) {
        if (canBeExpressed(tree.number)) {
            // Adding 0 turns -0 into 0.
            back.number = std::floor(tree.number) + 0.0;
        } else {
            back.kind = Kind::kAny;
        }
    } else if (tree.kind == Kind::kDictionary) {
        back = dictionaryRead(std::move(back.elements));
        for (std::size_t key = 0; key < tree.elements.size(); key += 2) {
            if (!isWellFormed(tree.elements[key].text)) {
                back.kind = Kind::kAny;
            }
        }
    }
    return back;
}

bool isWellFormed(const std::u16string& units) {
    for (std::size_t index = 0; index < units.size(); ++index) {
        if (units[index] < 0xD800 || units[index] > 0xDFFF) {
            continue;
        }
        const bool isPair = units[index] < 0xDC00 && index + 1 < units.size() &&
                            units[index + 1] >= 0xDC00 && units[index + 1] <= 0xDFFF;
        if (!isPair) {
            return false;
        }
        ++index;
    }
    return true;
}

bool canBeExpressed(double date) {
    // These are 0001-01-01T00:00:00Z and 10000-01-01T00:00:00Z.
    const bool isWithinTheYears = date >= -63113904000.0 && date < 252423993600.0;
    return isWithinTheYears && std::floor(date + 1e-4) == std::floor(date);
}

bool hasInexpressibleDate(const Tree& tree) {
    return anyNode(tree, [](const Tree& node) {
        return node.kind == Kind::kDate && !canBeExpressed(node.number);
    });
}

const Tree* find(const Tree* tree, const char16_t* key) {
    for (std::size_t entry = 0;
         tree != nullptr && tree->kind == Tree::Kind::kDictionary && entry < tree->elements.size();
         entry += 2) {
        if (tree->elements[entry].text == key) {
            return &tree->elements[entry + 1];
        }
    }
    return nullptr;
}

bool cannotBeRead(const Tree& tree) {
    return hasInexpressibleDate(tree) || depthOf(tree) > kDeepest;
}

}  // namespace qv::fuzz
