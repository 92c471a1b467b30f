// SPDX-License-Identifier: Apache-2.0

// Declares dictionaries for the readers and the writer.
//
// The entries of a dictionary are an array. It is a part of the dictionary object while there are
// as few entries as a service has, and a separate block of memory otherwise. A search looks at each
// entry of a small dictionary; a large dictionary has an index, a hash table of the positions of
// its entries.
#ifndef COREFOUNDATION_DICTIONARY_H
#define COREFOUNDATION_DICTIONARY_H

#include <CoreFoundation/CFDictionary.h>

#include "String.h"
#include "TypeBehavior.h"

namespace cf {

struct Dictionary : Container {
    struct Entry {
        const Object* key;
        const Object* value;
    };

    struct Index;

    Dictionary(bool canChange, bool keys, bool values)
        : Container(Type::Dictionary, canChange, values), keysAreObjects(keys) {
        capacity = kInlineCount;
    }

    static constexpr std::size_t kInlineCount = 2;

    bool keysAreObjects;
    std::size_t count = 0;
    Entry* entries = inlineEntries;
    Index* index = nullptr;
    Entry inlineEntries[kInlineCount];
};

inline const Dictionary* asDictionary(const Object* object) {
    return static_cast<const Dictionary*>(object);
}

// Creates an empty dictionary of objects. Returns null if memory runs out.
Dictionary* makeDictionary();

// States whether the value that a key has already is kept or replaced.
enum class Present { Keep, Replace };

// Inserts a value and takes over the caller's references to the key and the value, if they are
// objects. Returns false
// and releases both if memory runs out. The dictionary need not be mutable, since the readers fill
// dictionaries with this function.
bool insertTaking(Dictionary& dictionary, const Object* key, const Object* value, Present present);

}  // namespace cf

#endif  // COREFOUNDATION_DICTIONARY_H
