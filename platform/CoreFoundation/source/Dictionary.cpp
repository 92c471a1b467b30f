// SPDX-License-Identifier: Apache-2.0

#include "Dictionary.h"

#include <algorithm>
#include <cstring>

#include "DictionaryIndex.h"
#include "Hash.h"

namespace cf {

namespace {

using Entry = Dictionary::Entry;
using Index = Dictionary::Index;

// The number of entries up to which looking at each of them is faster than an index.
constexpr std::size_t kMostWithoutIndex = 8;
constexpr std::size_t kMostEntries = UINT32_MAX / 4;

// Compares two keys. The search for a key needs the result at once, so containers that are keys,
// and the keys of their keys, are compared recursively. Returns false beyond a depth that no
// sensible tree has.
bool equalKeys(const Object* one, const Object* other) {
    constexpr int kDeepest = 8;
    static thread_local int depth = 0;
    if (depth == kDeepest) {
        return false;
    }
    ++depth;
    const bool areEqual = equal(one, other);
    --depth;
    return areEqual;
}

bool sameKey(const Dictionary& dictionary, const Object* one, const Object* other) {
    if (one == other || !dictionary.keysAreObjects) {
        return one == other;
    }
    if (typeOf(one) == Type::String && typeOf(other) == Type::String) {
        return equalStrings(*asString(one), *asString(other));
    }
    return equalKeys(one, other);
}

std::uint32_t hashKey(const Dictionary& dictionary, const Object* key) {
    return static_cast<std::uint32_t>(
        dictionary.keysAreObjects ? hash(key) : hashWord(reinterpret_cast<std::uintptr_t>(key)));
}

void releaseKey(const Dictionary& dictionary, const Object* key) {
    if (dictionary.keysAreObjects) {
        release(key);
    }
}

void releaseValue(const Dictionary& dictionary, const Object* value) {
    if (dictionary.valuesAreObjects) {
        release(value);
    }
}

Index* makeIndex(const Dictionary& dictionary, std::size_t capacity) {
    Index* const index = Index::make(capacity);
    for (std::size_t at = 0; index != nullptr && at < dictionary.count; ++at) {
        index->insert(hashKey(dictionary, dictionary.entries[at].key), at);
    }
    return index;
}

// Makes room for one more entry, and an index with room for all entries.
bool makeRoom(Dictionary& dictionary) {
    if (dictionary.count < dictionary.capacity) {
        return true;
    }
    const std::size_t capacity = dictionary.capacity * 2;
    if (capacity > kMostEntries) {
        return false;
    }
    Index* index = nullptr;
    if (capacity > kMostWithoutIndex) {
        index = makeIndex(dictionary, capacity);
        if (index == nullptr) {
            return false;
        }
    }
    const bool wereInline = dictionary.entries == dictionary.inlineEntries;
    auto* const entries = static_cast<Entry*>(
        std::realloc(wereInline ? nullptr : dictionary.entries, capacity * sizeof(Entry)));
    if (entries == nullptr) {
        std::free(index);
        return false;
    }
    if (wereInline) {
        std::copy_n(dictionary.inlineEntries, dictionary.count, entries);
    }
    std::free(dictionary.index);
    dictionary.entries = entries;
    dictionary.capacity = capacity;
    dictionary.index = index;
    return true;
}

Entry* find(const Dictionary& dictionary, const Object* key) {
    if (dictionary.index == nullptr) {
        Entry* const end = dictionary.entries + dictionary.count;
        Entry* const found = std::find_if(dictionary.entries, end, [&](const Entry& entry) {
            return sameKey(dictionary, entry.key, key);
        });
        return found == end ? nullptr : found;
    }
    Index& index = *dictionary.index;
    const std::uint32_t hash = hashKey(dictionary, key);
    for (std::size_t slot = index.home(hash); index.slots()[slot].position != 0;
         slot = index.next(slot)) {
        if (index.slots()[slot].hash == hash) {
            Entry* const entry = dictionary.entries + (index.slots()[slot].position - 1);
            if (sameKey(dictionary, entry->key, key)) {
                return entry;
            }
        }
    }
    return nullptr;
}

// Appends an entry. The dictionary must not hold the key yet and must have room for the entry.
void append(Dictionary& dictionary, const Object* key, const Object* value) {
    if (dictionary.index != nullptr) {
        dictionary.index->insert(hashKey(dictionary, key), dictionary.count);
    }
    dictionary.entries[dictionary.count++] = {key, value};
}

// Removes an entry. The last entry takes its place.
void remove(Dictionary& dictionary, Entry& entry) {
    const Entry removed = entry;
    const auto position = static_cast<std::size_t>(&entry - dictionary.entries);
    const std::size_t last = dictionary.count - 1;
    if (dictionary.index != nullptr) {
        Index& index = *dictionary.index;
        index.erase(index.find(hashKey(dictionary, removed.key), position));
        if (position != last) {
            const std::uint32_t hash = hashKey(dictionary, dictionary.entries[last].key);
            index.slots()[index.find(hash, last)].position =
                static_cast<std::uint32_t>(position + 1);
        }
    }
    entry = dictionary.entries[last];
    dictionary.count = last;
    releaseKey(dictionary, removed.key);
    releaseValue(dictionary, removed.value);
}

void releaseEntries(const Dictionary& dictionary, Ending& ending) {
    for (std::size_t at = 0; at < dictionary.count; ++at) {
        if (dictionary.keysAreObjects) {
            ending.release(dictionary.entries[at].key);
        }
        if (dictionary.valuesAreObjects) {
            ending.release(dictionary.entries[at].value);
        }
    }
    if (dictionary.entries != dictionary.inlineEntries) {
        std::free(dictionary.entries);
    }
    std::free(dictionary.index);
}

void removeAll(Dictionary& dictionary) {
    Ending ending;
    releaseEntries(dictionary, ending);
    ending.run();
    dictionary.count = 0;
    dictionary.entries = dictionary.inlineEntries;
    dictionary.capacity = Dictionary::kInlineCount;
    dictionary.index = nullptr;
}

void endDictionary(Object& object, Ending& ending) {
    releaseEntries(static_cast<Dictionary&>(object), ending);
    dispose(&static_cast<Dictionary&>(object));
}

bool equalDictionaries(const Object* one, const Object* other, Comparison& comparison) {
    const auto& left = *static_cast<const Dictionary*>(one);
    const auto& right = *static_cast<const Dictionary*>(other);
    return left.count == right.count && left.keysAreObjects == right.keysAreObjects &&
           left.valuesAreObjects == right.valuesAreObjects &&
           std::all_of(left.entries, left.entries + left.count, [&](const Entry& entry) {
               const Entry* const found = find(right, entry.key);
               return found != nullptr &&
                      (entry.value == found->value ||
                       (left.valuesAreObjects && comparison.compare(entry.value, found->value)));
           });
}

// Returns the hash of the count, since the entries may be nested deep.
CFHashCode hashDictionary(const Object* object) {
    return hashWord(static_cast<const Dictionary*>(object)->count);
}

}  // namespace

const TypeBehavior kDictionaryBehavior = {endDictionary, equalDictionaries, hashDictionary};

Dictionary* makeDictionary() {
    return create<Dictionary>(kCFAllocatorDefault, 0, true, true, true);
}

bool insertTaking(Dictionary& dictionary, const Object* key, const Object* value, Present present) {
    if (Entry* const entry = find(dictionary, key); entry != nullptr) {
        releaseKey(dictionary, key);
        if (present == Present::Replace) {
            releaseValue(dictionary, entry->value);
            entry->value = value;
        } else {
            releaseValue(dictionary, value);
        }
        return true;
    }
    if (!makeRoom(dictionary)) {
        releaseKey(dictionary, key);
        releaseValue(dictionary, value);
        return false;
    }
    append(dictionary, key, value);
    return true;
}

}  // namespace cf

namespace {

using cf::Dictionary;

const void* retainObject(CFAllocatorRef /*allocator*/, const void* value) {
    return CFRetain(value);
}

void releaseObject(CFAllocatorRef /*allocator*/, const void* value) {
    CFRelease(value);
}

Dictionary* createDictionary(CFAllocatorRef allocator, bool isMutable,
                             const CFDictionaryKeyCallBacks* keys,
                             const CFDictionaryValueCallBacks* values) {
    const bool areKnown =
        (keys == nullptr || std::memcmp(keys, &kCFTypeDictionaryKeyCallBacks, sizeof *keys) == 0) &&
        (values == nullptr ||
         std::memcmp(values, &kCFTypeDictionaryValueCallBacks, sizeof *values) == 0);
    return areKnown
               ? cf::create<Dictionary>(allocator, 0, isMutable, keys != nullptr, values != nullptr)
               : nullptr;
}

// Inserts a value. Returns false if memory runs out.
bool insert(Dictionary& dictionary, const void* key, const void* value, cf::Present present) {
    return cf::insertTaking(
        dictionary, cf::asObject(dictionary.keysAreObjects ? CFRetain(key) : key),
        cf::asObject(dictionary.valuesAreObjects ? CFRetain(value) : value), present);
}

CFMutableDictionaryRef asReference(Dictionary* dictionary) {
    return reinterpret_cast<CFMutableDictionaryRef>(dictionary);
}
const Dictionary& asDictionary(CFDictionaryRef dictionary) {
    return *reinterpret_cast<const Dictionary*>(dictionary);
}
Dictionary& asDictionary(CFMutableDictionaryRef dictionary) {
    return *reinterpret_cast<Dictionary*>(dictionary);
}

}  // namespace

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {
    0, retainObject, releaseObject, CFCopyDescription, CFEqual, CFHash};

const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {0, retainObject, releaseObject,
                                                                    CFCopyDescription, CFEqual};

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values,
                                   CFIndex count, const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks) {
    if (count < 0 || (count != 0 && (keys == nullptr || values == nullptr))) {
        return nullptr;
    }
    cf::Ref<Dictionary> dictionary(
        createDictionary(allocator, false, keyCallBacks, valueCallBacks));
    for (CFIndex at = 0; dictionary && at < count; ++at) {
        if (!insert(*dictionary, keys[at], values[at], cf::Present::Keep)) {
            return nullptr;
        }
    }
    return asReference(dictionary.pass());
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks) {
    return capacity < 0
               ? nullptr
               : asReference(createDictionary(allocator, true, keyCallBacks, valueCallBacks));
}

CFTypeID CFDictionaryGetTypeID() {
    return cf::typeId(cf::Type::Dictionary);
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
    return static_cast<CFIndex>(asDictionary(dictionary).count);
}

Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key) {
    return cf::find(asDictionary(dictionary), cf::asObject(key)) != nullptr ? TRUE : FALSE;
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
    const Dictionary::Entry* const entry = cf::find(asDictionary(dictionary), cf::asObject(key));
    return entry == nullptr ? nullptr : entry->value;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key,
                                      const void** value) {
    const Dictionary::Entry* const entry = cf::find(asDictionary(dictionary), cf::asObject(key));
    if (entry == nullptr) {
        return FALSE;
    }
    if (value != nullptr) {
        *value = entry->value;
    }
    return TRUE;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys,
                                  const void** values) {
    for (std::size_t at = 0; at < asDictionary(dictionary).count; ++at) {
        const Dictionary::Entry& entry = asDictionary(dictionary).entries[at];
        if (keys != nullptr) {
            keys[at] = entry.key;
        }
        if (values != nullptr) {
            values[at] = entry.value;
        }
    }
}

void CFDictionaryApplyFunction(CFDictionaryRef dictionary, CFDictionaryApplierFunction function,
                               void* context) {
    for (std::size_t at = 0; at < asDictionary(dictionary).count; ++at) {
        const Dictionary::Entry& entry = asDictionary(dictionary).entries[at];
        function(entry.key, entry.value, context);
    }
}

void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
    if (asDictionary(dictionary).isMutable) {
        insert(asDictionary(dictionary), key, value, cf::Present::Keep);
    }
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
    if (asDictionary(dictionary).isMutable) {
        insert(asDictionary(dictionary), key, value, cf::Present::Replace);
    }
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key) {
    if (!asDictionary(dictionary).isMutable) {
        return;
    }
    if (auto* const entry = cf::find(asDictionary(dictionary), cf::asObject(key));
        entry != nullptr) {
        cf::remove(asDictionary(dictionary), *entry);
    }
}

void CFDictionaryRemoveAllValues(CFMutableDictionaryRef dictionary) {
    if (asDictionary(dictionary).isMutable) {
        cf::removeAll(asDictionary(dictionary));
    }
}
