// Decides which trees are valid property lists.
#ifndef COREFOUNDATION_VALIDITY_H
#define COREFOUNDATION_VALIDITY_H

#include <CoreFoundation/CFPropertyList.h>

#include "Array.h"
#include "Dictionary.h"

namespace cf {

// Returns whether an object that is not a container is valid in a format.
bool isValidLeaf(const Object* object, CFPropertyListFormat format);

// Returns whether the container holds objects, and whether the keys of a dictionary are strings.
// Does not check the values.
inline bool holdsPropertyLists(const Array& array) {
    return array.holdsObjects();
}
bool holdsPropertyLists(const Dictionary& dictionary);

// Returns whether the whole tree is valid in a format.
bool isValid(const Object* root, CFPropertyListFormat format);

}  // namespace cf

#endif  // COREFOUNDATION_VALIDITY_H
