// Dictionaries, as the readers and the writer see them.
//
// The entries stand one after the other: in the dictionary itself while they are as few as those of
// a service, else in memory of their own. A handful is searched from end to end; more than that are
// found through an index, a hash table of the entries' positions.
#ifndef COREFOUNDATION_DICTIONARY_H
#define COREFOUNDATION_DICTIONARY_H

#include <CoreFoundation/CFDictionary.h>

#include "String.h"
#include "TypeBehavior.h"

namespace cf {

struct Dictionary : Container {
    struct Entry {
        const void* key;
        const void* value;
    };

    // Whether all keys or all values are objects, as in every dictionary of a property list.
    struct CallBacks {
        CFDictionaryKeyCallBacks key;
        CFDictionaryValueCallBacks value;
        bool keysAreObjects;
        bool valuesAreObjects;
    };

    struct Index;

    Dictionary(bool canChange, bool isSpecial) : Container(Type::Dictionary, canChange, isSpecial) {
        capacity = kInlineCount;
    }

    // Only where there are any.
    const CallBacks& callBacks() const { return *reinterpret_cast<const CallBacks*>(this + 1); }
    bool keysAreObjects() const { return !hasCallBacks || callBacks().keysAreObjects; }
    bool valuesAreObjects() const { return !hasCallBacks || callBacks().valuesAreObjects; }

    static constexpr std::size_t kInlineCount = 2;

    std::size_t count = 0;
    Entry* entries = inlineEntries;
    Index* index = nullptr;
    Entry inlineEntries[kInlineCount];
};

inline const Dictionary* asDictionary(const Object* object) {
    return static_cast<const Dictionary*>(object);
}

// An empty dictionary of objects. Null where there is no memory.
Dictionary* makeDictionary();

// What becomes of the value that a key has already.
enum class Present { Keep, Replace };

// Takes over the caller's references to the key and the value; false, and both are given back,
// where there is no memory. The dictionary need not be mutable: this is how the readers fill it.
bool insertTaking(Dictionary& dictionary, const Object* key, const Object* value, Present present);

}  // namespace cf

#endif  // COREFOUNDATION_DICTIONARY_H
