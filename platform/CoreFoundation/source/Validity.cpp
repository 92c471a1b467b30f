#include "Validity.h"

#include <algorithm>

#include "Refusal.h"

namespace cf {

bool isValidLeaf(const Object* object, CFPropertyListFormat format) {
    switch (typeOf(object)) {
        case Type::String:
        case Type::Data:
            return true;
        case Type::Number:
        case Type::Boolean:
        case Type::Date:
        case Type::Uid:
            return format != kCFPropertyListOpenStepFormat;
        default:
            return false;
    }
}

bool holdsPropertyLists(const Dictionary& dictionary) {
    return dictionary.keysAreObjects() && dictionary.valuesAreObjects() &&
           std::all_of(dictionary.entries, dictionary.entries + dictionary.count,
                       [](const Dictionary::Entry& entry) {
                           return typeOf(asObject(entry.key)) == Type::String;
                       });
}

// The depth is limited, so a container that holds itself needs no other check: walking into it
// never comes to an end before the limit does.
bool isValid(const Object* root, CFPropertyListFormat format) {
    if (root == nullptr ||
        (format != kCFPropertyListOpenStepFormat && format != kCFPropertyListXMLFormat_v1_0 &&
         format != kCFPropertyListBinaryFormat_v1_0)) {
        return false;
    }
    struct Level {
        const Object* container;
        std::size_t next;  // of its values
    };
    Level levels[kMaximumNesting];
    std::size_t depth = 0;

    for (const Object* object = root;;) {
        const Type type = typeOf(object);
        if (type == Type::Array || type == Type::Dictionary) {
            const bool isGood = type == Type::Array ? holdsPropertyLists(*asArray(object))
                                                    : holdsPropertyLists(*asDictionary(object));
            if (!isGood || depth == kMaximumNesting) {
                return false;
            }
            levels[depth++] = {object, 0};
        } else if (!isValidLeaf(object, format) ||
                   // It is written as a dictionary.
                   (type == Type::Uid && depth == kMaximumNesting)) {
            return false;
        }

        // The next value: of the innermost container that has one left.
        object = nullptr;
        while (object == nullptr) {
            if (depth == 0) {
                return true;
            }
            Level& level = levels[depth - 1];
            const bool isArray = level.container->type == Type::Array;
            const std::size_t count =
                isArray ? asArray(level.container)->count : asDictionary(level.container)->count;
            if (level.next == count) {
                --depth;
                continue;
            }
            object = isArray ? asArray(level.container)->objectAt(level.next)
                             : asObject(asDictionary(level.container)->entries[level.next].value);
            ++level.next;
        }
    }
}

}  // namespace cf
