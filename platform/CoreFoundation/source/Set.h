// Sets, as the binary reader sees them.
#ifndef COREFOUNDATION_SET_H
#define COREFOUNDATION_SET_H

#include <CoreFoundation/CFSet.h>

#include "Array.h"
#include "Dictionary.h"
#include "TypeBehavior.h"

namespace cf {

// To find out which members are equal takes time by the square of their number where they are
// containers, so only the first few of those are looked at; the others count each.
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
