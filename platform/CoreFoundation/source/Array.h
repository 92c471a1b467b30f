// Arrays, as the readers and the writer see them.
#ifndef COREFOUNDATION_ARRAY_H
#define COREFOUNDATION_ARRAY_H

#include <CoreFoundation/CFArray.h>

#include "TypeBehavior.h"

namespace cf {

struct Array : Container {
    Array(bool canChange, bool isSpecial) : Container(Type::Array, canChange, isSpecial) {}

    // Whether the values are objects, as in every array of a property list.
    bool holdsObjects() const { return !hasCallBacks; }
    // Only where it holds something else.
    const CFArrayCallBacks& callBacks() const {
        return *reinterpret_cast<const CFArrayCallBacks*>(this + 1);
    }
    const Object* objectAt(std::size_t index) const { return asObject(values[index]); }

    bool valuesStandBehind = false;
    std::size_t count = 0;
    const void** values = nullptr;
};

inline const Array* asArray(const Object* object) {
    return static_cast<const Array*>(object);
}

// An empty array of objects. Null where there is no memory.
Array* makeArray();

// Takes over the caller's reference to the value; false, and the reference is given back, where
// there is no memory. The array need not be mutable: this is how the readers fill it.
bool appendTaking(Array& array, const Object* value);

}  // namespace cf

#endif  // COREFOUNDATION_ARRAY_H
