// Sets, as the binary reader sees them.
#ifndef COREFOUNDATION_SET_H
#define COREFOUNDATION_SET_H

#include <CoreFoundation/CFSet.h>

#include "Array.h"
#include "Dictionary.h"
#include "TypeBehavior.h"

namespace cf {

// Members that are containers count each: to find out which of them are equal would take time by
// the square of their number.
struct Set : Container {
    Set(Dictionary* leafMembers, Array* containerMembers)
        : Container(Type::Set, false, false), leaves(leafMembers), containers(containerMembers) {}

    Dictionary* leaves;  // each its own value
    Array* containers;
};

// A set of the values of an array. Null where there is no memory.
Set* makeSet(const Array& values);

}  // namespace cf

#endif  // COREFOUNDATION_SET_H
