// SPDX-License-Identifier: Apache-2.0

// Represents a property list as a value, which can be compared and read without the library under
// test.
#ifndef QV_FUZZ_TREE_H
#define QV_FUZZ_TREE_H

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qv::fuzz {

struct Tree {
    enum class Kind {
        kString,
        kInteger,
        kReal,
        kBoolean,
        kDate,
        kData,
        kArray,
        kDictionary,
        kUid,
        kNull,
        kSet,
        kOther,
        // A tree of this kind equals every tree.
        kAny,
    };

    Kind kind = Kind::kOther;
    // The code units of a string.
    std::u16string text;
    // The bytes of data, or the decimal digits of an integer.
    std::string bytes;
    // The value of a real, or the seconds of a date since 2001.
    double number = 0;
    // The value of a boolean or a UID, or the number of members of a set.
    std::uint64_t count = 0;
    // The value of a number as kCFNumberSInt32Type, if it equals the number.
    std::optional<std::int32_t> sint32;
    // The elements of an array, or the keys and values of a dictionary in turn, sorted by the keys.
    std::vector<Tree> elements;
};

// A NaN equals every NaN, and 0 does not equal -0.
bool operator==(const Tree& one, const Tree& other);
inline bool operator!=(const Tree& one, const Tree& other) {
    return !(one == other);
}

Tree treeOf(CFTypeRef object);

// Returns the tree that is read from the XML document of the tree. It differs from the tree if XML
// cannot express a value:
//   - A string loses one leading U+FEFF. If a key becomes equal to a later one, the later one
//   counts.
//   - A dictionary that holds only "CF$UID" and a number becomes a UID.
//   - A real or a date of -0 becomes 0, and a date loses the fraction of its second.
//   - A date for which canBeExpressed() is false becomes kAny.
//   - A string with a lone surrogate, or a dictionary with such a key, becomes kAny, since some of
//     the text is lost.
Tree readBack(const Tree& tree);

// Returns whether `holds` returns true for any node of the tree.
template <class Predicate>
bool anyNode(const Tree& tree, const Predicate& holds) {
    if (holds(tree)) {
        return true;
    }
    for (const Tree& element : tree.elements) {
        if (anyNode(element, holds)) {
            return true;
        }
    }
    return false;
}

// Returns whether the code units are Unicode, with no lone surrogate.
bool isWellFormed(const std::u16string& units);

// Returns whether a document can express the date to the second. The date must be in the years 1 to
// 9999. A date just before a second is rounded up to that second, which may be the 61st of its
// minute.
bool canBeExpressed(double date);

// Returns whether the tree holds a date that no document can express. Its document may be refused
// or yield another date.
bool hasInexpressibleDate(const Tree& tree);

// Returns the value of the key, or null if there is none or the tree is no dictionary.
const Tree* find(const Tree* tree, const char16_t* key);

// Returns whether the document of the tree may be refused.
bool cannotBeRead(const Tree& tree);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_TREE_H
