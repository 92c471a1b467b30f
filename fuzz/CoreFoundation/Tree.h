// What a property list holds, as a value: two trees can be compared, and looked at, without the
// library under test having a say in it.
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
        // Equal to every tree.
        kAny,
    };

    Kind kind = Kind::kOther;
    // A string's code units.
    std::u16string text;
    // Data; of an integer its decimal digits.
    std::string bytes;
    // Of a real, in a date as seconds since 2001.
    double number = 0;
    // Of a truth value; a UID's value, a set's count.
    std::uint64_t count = 0;
    // A number as kCFNumberSInt32Type, where it is the same then.
    std::optional<std::int32_t> sint32;
    // An array's; of a dictionary key, value, key, value, by the keys' code units.
    std::vector<Tree> elements;
};

// NaN is equal to itself, and 0 differs from -0.
bool operator==(const Tree& one, const Tree& other);
inline bool operator!=(const Tree& one, const Tree& other) {
    return !(one == other);
}

Tree treeOf(CFTypeRef object);

// The tree as it comes back when it is written as XML and read again. Differs where XML cannot say
// it:
//  - a string loses one leading U+FEFF, and a key may thereby become equal to a later one, which
//  wins;
//  - a dictionary that holds just "CF$UID" and a number comes back as a UID;
//  - -0 comes back as 0, a date too, and a date without the fraction of its second;
//  - a date of which canBeSaid() does not hold becomes kAny, and so does a string with a lone
//    surrogate, of which some is lost, and a dictionary with such a key.
Tree readBack(const Tree& tree);

// Whether any node of the tree is one for which `holds`.
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

// Whether the code units are Unicode: no surrogate without its partner.
bool isWellFormed(const std::u16string& units);

// Whether a date has a document form that says what it is, to the second: it is in the years 1 to
// 9999, and not so little before a second that it is rounded up to it, which then may be the
// minute's 61st.
bool canBeSaid(double date);

// Another date, or no tree at all, may come back then.
bool hasDateThatCannotBeSaid(const Tree& tree);

// Whether the tree's own document may be refused.
bool cannotBeRead(const Tree& tree);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_TREE_H
