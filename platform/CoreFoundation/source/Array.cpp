#include "Array.h"

#include "Hash.h"

namespace cf {

namespace {

constexpr CFArrayCallBacks kNoCallBacks = {0, nullptr, nullptr, nullptr, nullptr};

bool isForObjects(const CFArrayCallBacks& callBacks) {
    return callBacks.retain == kCFTypeArrayCallBacks.retain &&
           callBacks.release == kCFTypeArrayCallBacks.release &&
           callBacks.equal == kCFTypeArrayCallBacks.equal;
}

// Creates an empty array. The memory behind it has room for the callbacks, unless the values are
// objects, and for `inlineCount` values, all of which must be appended.
Array* createArray(CFAllocatorRef allocator, bool isMutable, const CFArrayCallBacks* callBacks,
                   std::size_t inlineCount) {
    const CFArrayCallBacks& wanted = callBacks == nullptr ? kNoCallBacks : *callBacks;
    const bool isSpecial = !isForObjects(wanted);
    const std::size_t callBacksSize = isSpecial ? sizeof wanted : 0;
    if (inlineCount > (PTRDIFF_MAX - sizeof wanted) / sizeof(void*)) {
        return nullptr;
    }
    auto* const array =
        create<Array>(allocator, callBacksSize + inlineCount * sizeof(void*), isMutable, isSpecial);
    if (array == nullptr) {
        return nullptr;
    }
    char* behind = reinterpret_cast<char*>(array + 1);
    if (isSpecial) {
        new (behind) CFArrayCallBacks(wanted);
        behind += callBacksSize;
    }
    if (inlineCount != 0) {
        array->values = reinterpret_cast<const void**>(behind);
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
    array.values = static_cast<const void**>(values);
    array.capacity = capacity;
    return true;
}

// Appends a value. The array must have room for it.
void append(Array& array, const void* value) {
    if (array.holdsObjects()) {
        retain(asObject(value));
    } else if (array.callBacks().retain != nullptr) {
        value = array.callBacks().retain(kCFAllocatorDefault, value);
    }
    array.values[array.count++] = value;
}

void endArray(Object& object, Ending& ending) {
    auto& array = static_cast<Array&>(object);
    for (std::size_t at = 0; at < array.count; ++at) {
        if (array.holdsObjects()) {
            ending.release(array.objectAt(at));
        } else if (array.callBacks().release != nullptr) {
            array.callBacks().release(kCFAllocatorDefault, array.values[at]);
        }
    }
    const std::size_t callBacksSize = array.hasCallBacks ? sizeof(CFArrayCallBacks) : 0;
    if (array.valuesStandBehind) {
        dispose(&array, callBacksSize + array.count * sizeof(void*));
    } else {
        std::free(static_cast<void*>(array.values));
        dispose(&array, callBacksSize);
    }
}

bool equalArrays(const Object* one, const Object* other, Comparison& comparison) {
    const auto& left = *static_cast<const Array*>(one);
    const auto& right = *static_cast<const Array*>(other);
    if (left.count != right.count || left.holdsObjects() != right.holdsObjects()) {
        return false;
    }
    for (std::size_t at = 0; at < left.count; ++at) {
        if (left.holdsObjects()) {
            if (!comparison.compare(left.objectAt(at), right.objectAt(at))) {
                return false;
            }
        } else if (left.values[at] != right.values[at] &&
                   (left.callBacks().equal == nullptr ||
                    left.callBacks().equal(left.values[at], right.values[at]) == FALSE)) {
            return false;
        }
    }
    return true;
}

// Returns the hash of the count, since the elements may be nested deep.
CFHashCode hashArray(const Object* object) {
    return hashWord(static_cast<const Array*>(object)->count);
}

void describeArray(const Object* object, Description& description) {
    const auto& array = *static_cast<const Array*>(object);
    description.add("(");
    for (std::size_t at = 0; at < array.count && !description.full(); ++at) {
        description.add(at == 0 ? "" : ", ");
        if (array.holdsObjects()) {
            description.add(array.objectAt(at));
        } else {
            description.add(array.values[at], array.callBacks().copyDescription);
        }
    }
    description.add(")");
}

}  // namespace

const TypeBehavior kArrayBehavior = {endArray, equalArrays, hashArray, describeArray};

Array* makeArray() {
    return createArray(kCFAllocatorDefault, true, &kCFTypeArrayCallBacks, 0);
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
    if (count < 0 || (values == nullptr && count != 0)) {
        return nullptr;
    }
    Array* const array =
        cf::createArray(allocator, false, callBacks, static_cast<std::size_t>(count));
    if (array != nullptr) {
        for (CFIndex at = 0; at < count; ++at) {
            cf::append(*array, values[at]);
        }
    }
    return asReference(array);
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks) {
    return capacity < 0 ? nullptr : asReference(cf::createArray(allocator, true, callBacks, 0));
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
        cf::append(array, value);
    }
}
