#include "Dictionary.h"

#include <algorithm>

#include "DictionaryIndex.h"
#include "Hash.h"

namespace cf {

namespace {

using CallBacks = Dictionary::CallBacks;
using Entry = Dictionary::Entry;
using Index = Dictionary::Index;

// The number of entries up to which looking at each of them is faster than an index.
constexpr std::size_t kMostWithoutIndex = 8;
constexpr std::size_t kMostEntries = UINT32_MAX / 4;

constexpr CFDictionaryKeyCallBacks kNoKeyCallBacks = {0,       nullptr, nullptr,
                                                      nullptr, nullptr, nullptr};
constexpr CFDictionaryValueCallBacks kNoValueCallBacks = {0, nullptr, nullptr, nullptr, nullptr};

bool isForObjects(const CFDictionaryKeyCallBacks& callBacks) {
    return callBacks.retain == kCFTypeDictionaryKeyCallBacks.retain &&
           callBacks.release == kCFTypeDictionaryKeyCallBacks.release &&
           callBacks.equal == kCFTypeDictionaryKeyCallBacks.equal &&
           callBacks.hash == kCFTypeDictionaryKeyCallBacks.hash;
}

bool isForObjects(const CFDictionaryValueCallBacks& callBacks) {
    return callBacks.retain == kCFTypeDictionaryValueCallBacks.retain &&
           callBacks.release == kCFTypeDictionaryValueCallBacks.release &&
           callBacks.equal == kCFTypeDictionaryValueCallBacks.equal;
}

Dictionary* createDictionary(CFAllocatorRef allocator, bool isMutable,
                             const CFDictionaryKeyCallBacks* keyCallBacks,
                             const CFDictionaryValueCallBacks* valueCallBacks) {
    if (keyCallBacks == &kCFTypeDictionaryKeyCallBacks &&
        valueCallBacks == &kCFTypeDictionaryValueCallBacks) {
        return create<Dictionary>(allocator, 0, isMutable, false);
    }
    const auto& key = keyCallBacks == nullptr ? kNoKeyCallBacks : *keyCallBacks;
    const auto& value = valueCallBacks == nullptr ? kNoValueCallBacks : *valueCallBacks;
    const bool keysAreObjects = isForObjects(key);
    const bool valuesAreObjects = isForObjects(value);
    if (keysAreObjects && valuesAreObjects) {
        return create<Dictionary>(allocator, 0, isMutable, false);
    }
    auto* const dictionary = create<Dictionary>(allocator, sizeof(CallBacks), isMutable, true);
    if (dictionary != nullptr) {
        new (static_cast<void*>(dictionary + 1))
            CallBacks{key, value, keysAreObjects, valuesAreObjects};
    }
    return dictionary;
}

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

bool sameKey(const Dictionary& dictionary, const void* one, const void* other) {
    if (one == other) {
        return true;
    }
    if (!dictionary.keysAreObjects()) {
        const auto equalOf = dictionary.callBacks().key.equal;
        return equalOf != nullptr && equalOf(one, other) != FALSE;
    }
    const Object* const left = asObject(one);
    const Object* const right = asObject(other);
    if (typeOf(left) == Type::String && typeOf(right) == Type::String) {
        return equalStrings(*asString(left), *asString(right));
    }
    return equalKeys(left, right);
}

std::uint32_t hashKey(const Dictionary& dictionary, const void* key) {
    if (dictionary.keysAreObjects()) {
        return static_cast<std::uint32_t>(hash(asObject(key)));
    }
    const auto hashOf = dictionary.callBacks().key.hash;
    // The results of a callback, or addresses, may differ in only a few bits.
    return static_cast<std::uint32_t>(
        hashWord(hashOf == nullptr ? reinterpret_cast<std::uintptr_t>(key) : hashOf(key)));
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

Entry* find(const Dictionary& dictionary, const void* key) {
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
void append(Dictionary& dictionary, const void* key, const void* value) {
    if (dictionary.index != nullptr) {
        dictionary.index->insert(hashKey(dictionary, key), dictionary.count);
    }
    dictionary.entries[dictionary.count++] = {key, value};
}

const void* retainKey(const Dictionary& dictionary, const void* key) {
    if (dictionary.keysAreObjects()) {
        retain(asObject(key));
        return key;
    }
    const auto retainOf = dictionary.callBacks().key.retain;
    return retainOf == nullptr ? key : retainOf(kCFAllocatorDefault, key);
}

const void* retainValue(const Dictionary& dictionary, const void* value) {
    if (dictionary.valuesAreObjects()) {
        retain(asObject(value));
        return value;
    }
    const auto retainOf = dictionary.callBacks().value.retain;
    return retainOf == nullptr ? value : retainOf(kCFAllocatorDefault, value);
}

void releaseKey(const Dictionary& dictionary, const void* key, Ending& ending) {
    if (dictionary.keysAreObjects()) {
        ending.release(asObject(key));
    } else if (const auto releaseOf = dictionary.callBacks().key.release; releaseOf != nullptr) {
        releaseOf(kCFAllocatorDefault, key);
    }
}

void releaseValue(const Dictionary& dictionary, const void* value, Ending& ending) {
    if (dictionary.valuesAreObjects()) {
        ending.release(asObject(value));
    } else if (const auto releaseOf = dictionary.callBacks().value.release; releaseOf != nullptr) {
        releaseOf(kCFAllocatorDefault, value);
    }
}

void insert(Dictionary& dictionary, const void* key, const void* value, Present present) {
    if (Entry* const entry = find(dictionary, key); entry != nullptr) {
        if (present == Present::Replace) {
            // The new value is retained first, since it may be the previous value or a part of it.
            const void* const before = entry->value;
            entry->value = retainValue(dictionary, value);
            Ending ending;
            releaseValue(dictionary, before, ending);
            ending.run();
        }
        return;
    }
    if (makeRoom(dictionary)) {
        key = retainKey(dictionary, key);
        append(dictionary, key, retainValue(dictionary, value));
    }
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

    Ending ending;
    releaseKey(dictionary, removed.key, ending);
    releaseValue(dictionary, removed.value, ending);
    ending.run();
}

void releaseEntries(const Dictionary& dictionary, const Entry* entries, std::size_t count,
                    Ending& ending) {
    for (std::size_t at = 0; at < count; ++at) {
        releaseKey(dictionary, entries[at].key, ending);
        releaseValue(dictionary, entries[at].value, ending);
    }
}

void removeAll(Dictionary& dictionary) {
    // The dictionary must be empty before the entries are released, since destroying an entry may
    // call a callback that uses the dictionary.
    Entry few[Dictionary::kInlineCount];
    std::copy_n(dictionary.inlineEntries, Dictionary::kInlineCount, few);
    const bool wereInline = dictionary.entries == dictionary.inlineEntries;
    Entry* const entries = wereInline ? few : dictionary.entries;
    const std::size_t count = dictionary.count;
    std::free(dictionary.index);
    dictionary.count = 0;
    dictionary.entries = dictionary.inlineEntries;
    dictionary.capacity = Dictionary::kInlineCount;
    dictionary.index = nullptr;

    Ending ending;
    releaseEntries(dictionary, entries, count, ending);
    ending.run();
    if (!wereInline) {
        std::free(entries);
    }
}

void endDictionary(Object& object, Ending& ending) {
    auto& dictionary = static_cast<Dictionary&>(object);
    releaseEntries(dictionary, dictionary.entries, dictionary.count, ending);
    if (dictionary.entries != dictionary.inlineEntries) {
        std::free(dictionary.entries);
    }
    std::free(dictionary.index);
    dispose(&dictionary, dictionary.hasCallBacks ? sizeof(CallBacks) : 0);
}

bool equalValues(const Dictionary& dictionary, const void* one, const void* other,
                 Comparison& comparison) {
    if (dictionary.valuesAreObjects()) {
        return comparison.compare(asObject(one), asObject(other));
    }
    const auto equalOf = dictionary.callBacks().value.equal;
    return one == other || (equalOf != nullptr && equalOf(one, other) != FALSE);
}

bool equalDictionaries(const Object* one, const Object* other, Comparison& comparison) {
    const auto& left = *static_cast<const Dictionary*>(one);
    const auto& right = *static_cast<const Dictionary*>(other);
    if (left.count != right.count || left.keysAreObjects() != right.keysAreObjects() ||
        left.valuesAreObjects() != right.valuesAreObjects()) {
        return false;
    }
    return std::all_of(left.entries, left.entries + left.count, [&](const Entry& entry) {
        const Entry* const found = find(right, entry.key);
        return found != nullptr && equalValues(left, entry.value, found->value, comparison);
    });
}

// Returns the hash of the count, since the entries may be nested deep.
CFHashCode hashDictionary(const Object* object) {
    return hashWord(static_cast<const Dictionary*>(object)->count);
}

void describeDictionary(const Object* object, Description& description) {
    const auto& dictionary = *static_cast<const Dictionary*>(object);
    description.add("{");
    for (std::size_t at = 0; at < dictionary.count && !description.full(); ++at) {
        description.add(" ");
        const Entry& entry = dictionary.entries[at];
        if (dictionary.keysAreObjects()) {
            description.add(asObject(entry.key));
        } else {
            description.add(entry.key, dictionary.callBacks().key.copyDescription);
        }
        description.add(" = ");
        if (dictionary.valuesAreObjects()) {
            description.add(asObject(entry.value));
        } else {
            description.add(entry.value, dictionary.callBacks().value.copyDescription);
        }
        description.add(";");
    }
    description.add(" }");
}

}  // namespace

const TypeBehavior kDictionaryBehavior = {endDictionary, equalDictionaries, hashDictionary,
                                          describeDictionary};

Dictionary* makeDictionary() {
    return create<Dictionary>(kCFAllocatorDefault, 0, true, false);
}

bool insertTaking(Dictionary& dictionary, const Object* key, const Object* value, Present present) {
    if (Entry* const entry = find(dictionary, key); entry != nullptr) {
        release(key);
        if (present == Present::Replace) {
            release(asObject(entry->value));
            entry->value = value;
        } else {
            release(value);
        }
        return true;
    }
    if (!makeRoom(dictionary)) {
        release(key);
        release(value);
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
    Dictionary* const dictionary =
        cf::createDictionary(allocator, false, keyCallBacks, valueCallBacks);
    if (dictionary == nullptr) {
        return nullptr;
    }
    for (CFIndex at = 0; at < count; ++at) {
        if (!cf::makeRoom(*dictionary)) {
            cf::release(dictionary);
            return nullptr;
        }
        cf::insert(*dictionary, keys[at], values[at], cf::Present::Keep);
    }
    return asReference(dictionary);
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks) {
    return capacity < 0
               ? nullptr
               : asReference(cf::createDictionary(allocator, true, keyCallBacks, valueCallBacks));
}

CFTypeID CFDictionaryGetTypeID() {
    return cf::typeId(cf::Type::Dictionary);
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
    return static_cast<CFIndex>(asDictionary(dictionary).count);
}

Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key) {
    return cf::find(asDictionary(dictionary), key) != nullptr ? TRUE : FALSE;
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
    const Dictionary::Entry* const entry = cf::find(asDictionary(dictionary), key);
    return entry == nullptr ? nullptr : entry->value;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key,
                                      const void** value) {
    const Dictionary::Entry* const entry = cf::find(asDictionary(dictionary), key);
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
        cf::insert(asDictionary(dictionary), key, value, cf::Present::Keep);
    }
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
    if (asDictionary(dictionary).isMutable) {
        cf::insert(asDictionary(dictionary), key, value, cf::Present::Replace);
    }
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key) {
    if (!asDictionary(dictionary).isMutable) {
        return;
    }
    if (auto* const entry = cf::find(asDictionary(dictionary), key); entry != nullptr) {
        cf::remove(asDictionary(dictionary), *entry);
    }
}

void CFDictionaryRemoveAllValues(CFMutableDictionaryRef dictionary) {
    if (asDictionary(dictionary).isMutable) {
        cf::removeAll(asDictionary(dictionary));
    }
}
