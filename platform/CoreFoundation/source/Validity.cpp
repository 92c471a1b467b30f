// SPDX-License-Identifier: Apache-2.0

#include "Validity.h"

#include <algorithm>

#include "Limits.h"

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

bool hasStringKeys(const Dictionary& dictionary) {
    return dictionary.keysAreObjects &&
           std::all_of(
               dictionary.entries, dictionary.entries + dictionary.count,
               [](const Dictionary::Entry& entry) { return typeOf(entry.key) == Type::String; });
}

// The limit of depth also rejects a container that holds itself, since the walk into it reaches the
// limit.
bool isValid(const Object* root, CFPropertyListFormat format) {
    if (root == nullptr ||
        (format != kCFPropertyListOpenStepFormat && format != kCFPropertyListXMLFormat_v1_0 &&
         format != kCFPropertyListBinaryFormat_v1_0)) {
        return false;
    }
    struct Level {
        const Object* container;
        std::size_t next;  // The index of the next value.
    };
    Level levels[kMaximumNesting];
    std::size_t depth = 0;

    for (const Object* object = root;;) {
        const Type type = typeOf(object);
        if (type == Type::Array || type == Type::Dictionary) {
            if (depth == kMaximumNesting ||
                !static_cast<const Container*>(object)->valuesAreObjects ||
                (type == Type::Dictionary && !hasStringKeys(*asDictionary(object)))) {
                return false;
            }
            levels[depth++] = {object, 0};
        } else if (!isValidLeaf(object, format) ||
                   // A UID is written as a dictionary.
                   (type == Type::Uid && depth == kMaximumNesting)) {
            return false;
        }

        // Finds the next value of the innermost container that has one left.
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
            object = isArray ? asArray(level.container)->values[level.next]
                             : asDictionary(level.container)->entries[level.next].value;
            ++level.next;
        }
    }
}

}  // namespace cf
