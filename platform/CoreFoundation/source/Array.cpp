// SPDX-License-Identifier: Apache-2.0

#include "Array.h"

#include <algorithm>
#include <cstring>

#include "Hash.h"

namespace cf {

namespace {

// Creates an empty array. The memory behind it has room for `inlineCount` values, all of which must
// be appended.
Array* createArray(CFAllocatorRef allocator, bool isMutable, bool ofObjects,
                   std::size_t inlineCount) {
    if (inlineCount > PTRDIFF_MAX / sizeof(void*)) {
        return nullptr;
    }
    auto* const array = create<Array>(allocator, inlineCount * sizeof(void*), isMutable, ofObjects);
    if (array != nullptr && inlineCount != 0) {
        array->values = reinterpret_cast<const Object**>(array + 1);
        array->capacity = inlineCount;
        array->valuesStandBehind = true;
    }
    return array;
}

// Makes room for one more value. The values must not stand behind the array in its own memory,
// unless the array still has room.
bool makeRoom(Array& array) {
    if (array.count < array.capacity) {
        return true;
    }
    const std::size_t capacity = array.capacity == 0 ? 4 : array.capacity * 2;
    void* const values = std::realloc(static_cast<void*>(array.values), capacity * sizeof(void*));
    if (values == nullptr) {
        return false;
    }
    array.values = static_cast<const Object**>(values);
    array.capacity = capacity;
    return true;
}

void endArray(Object& object, Ending& ending) {
    auto& array = static_cast<Array&>(object);
    for (std::size_t at = 0; array.valuesAreObjects && at < array.count; ++at) {
        ending.release(array.values[at]);
    }
    if (array.valuesStandBehind) {
        dispose(&array, array.count * sizeof(void*));
    } else {
        std::free(static_cast<void*>(array.values));
        dispose(&array);
    }
}

bool equalArrays(const Object* one, const Object* other, Comparison& comparison) {
    const auto& left = *static_cast<const Array*>(one);
    const auto& right = *static_cast<const Array*>(other);
    return left.count == right.count && left.valuesAreObjects == right.valuesAreObjects &&
           std::equal(left.values, left.values + left.count, right.values,
                      [&](const Object* value, const Object* otherValue) {
                          return value == otherValue ||
                                 (left.valuesAreObjects && comparison.compare(value, otherValue));
                      });
}

// Returns the hash of the count, since the elements may be nested deep.
CFHashCode hashArray(const Object* object) {
    return hashWord(static_cast<const Array*>(object)->count);
}

}  // namespace

const TypeBehavior kArrayBehavior = {endArray, equalArrays, hashArray};

Array* makeArray() {
    return createArray(kCFAllocatorDefault, true, true, 0);
}

bool appendTaking(Array& array, const Object* value) {
    if (!makeRoom(array)) {
        release(value);
        return false;
    }
    array.values[array.count++] = value;
    return true;
}

}  // namespace cf

namespace {

using cf::Array;

const void* retainValue(CFAllocatorRef /*allocator*/, const void* value) {
    return CFRetain(value);
}

void releaseValue(CFAllocatorRef /*allocator*/, const void* value) {
    CFRelease(value);
}

// Returns whether the layer knows the callbacks.
bool isKnown(const CFArrayCallBacks* callBacks) {
    return callBacks == nullptr ||
           std::memcmp(callBacks, &kCFTypeArrayCallBacks, sizeof *callBacks) == 0;
}

// Appends a value. The array must have room for it.
void append(Array& array, const void* value) {
    array.values[array.count++] = cf::asObject(array.valuesAreObjects ? CFRetain(value) : value);
}

CFMutableArrayRef asReference(Array* array) {
    return reinterpret_cast<CFMutableArrayRef>(array);
}
const Array& asArray(CFArrayRef array) {
    return *reinterpret_cast<const Array*>(array);
}

}  // namespace

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, retainValue, releaseValue, CFCopyDescription,
                                                CFEqual};

CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                         const CFArrayCallBacks* callBacks) {
    if (count < 0 || (values == nullptr && count != 0) || !isKnown(callBacks)) {
        return nullptr;
    }
    const auto size = static_cast<std::size_t>(count);
    Array* const array = cf::createArray(allocator, false, callBacks != nullptr, size);
    while (array != nullptr && array->count < size) {
        append(*array, values[array->count]);
    }
    return asReference(array);
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks) {
    return capacity < 0 || !isKnown(callBacks)
               ? nullptr
               : asReference(cf::createArray(allocator, true, callBacks != nullptr, 0));
}

CFTypeID CFArrayGetTypeID() {
    return cf::typeId(cf::Type::Array);
}

CFIndex CFArrayGetCount(CFArrayRef array) {
    return static_cast<CFIndex>(asArray(array).count);
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
    return index < 0 || index >= CFArrayGetCount(array)
               ? nullptr
               : asArray(array).values[static_cast<std::size_t>(index)];
}

void CFArrayAppendValue(CFMutableArrayRef reference, const void* value) {
    auto& array = *reinterpret_cast<Array*>(reference);
    if (array.isMutable && cf::makeRoom(array)) {
        append(array, value);
    }
}
