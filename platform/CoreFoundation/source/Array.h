// SPDX-License-Identifier: Apache-2.0

// Declares arrays for the readers and the writer.
#ifndef COREFOUNDATION_ARRAY_H
#define COREFOUNDATION_ARRAY_H

#include <CoreFoundation/CFArray.h>

#include "TypeBehavior.h"

namespace cf {

struct Array : Container {
    Array(bool canChange, bool areObjects) : Container(Type::Array, canChange, areObjects) {}

    bool valuesStandBehind = false;
    std::size_t count = 0;
    const Object** values = nullptr;
};

inline const Array* asArray(const Object* object) {
    return static_cast<const Array*>(object);
}

// Creates an empty array of objects. Returns null if memory runs out.
Array* makeArray();

// Appends a value and takes over the caller's reference to it. Returns false and releases the value
// if memory runs out. The array need not be mutable, since the readers fill arrays with this
// function.
bool appendTaking(Array& array, const Object* value);

}  // namespace cf

#endif  // COREFOUNDATION_ARRAY_H
