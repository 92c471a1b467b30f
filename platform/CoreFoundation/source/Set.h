// SPDX-License-Identifier: Apache-2.0

// Declares sets for the binary reader.
#ifndef COREFOUNDATION_SET_H
#define COREFOUNDATION_SET_H

#include <CoreFoundation/CFSet.h>

#include "Array.h"
#include "Dictionary.h"
#include "TypeBehavior.h"

namespace cf {

// A set keeps members that are containers apart from its other members, the leaves. The time to
// find equal containers grows with the square of their number. So a new container is compared with
// the first few containers only, and a set may hold equal containers beyond those.
struct Set : Container {
    Set(Dictionary* leafMembers, Array* containerMembers)
        : Container(Type::Set, false), leaves(leafMembers), containers(containerMembers) {}

    Dictionary* leaves;  // Each leaf is the key and the value of an entry.
    Array* containers;
};

// Creates a set of the values of an array. Returns null if memory runs out.
Set* makeSet(const Array& values);

}  // namespace cf

#endif  // COREFOUNDATION_SET_H
