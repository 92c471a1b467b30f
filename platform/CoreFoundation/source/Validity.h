// Which trees are property lists.
#ifndef COREFOUNDATION_VALIDITY_H
#define COREFOUNDATION_VALIDITY_H

#include <CoreFoundation/CFPropertyList.h>

#include "Array.h"
#include "Dictionary.h"

namespace cf {

// Whether an object that is no container is valid by itself in a format.
bool isValidLeaf(const Object* object, CFPropertyListFormat format);

// Whether a container is one that can hold property lists; its values are another matter.
inline bool holdsPropertyLists(const Array& array) {
    return array.holdsObjects();
}
bool holdsPropertyLists(const Dictionary& dictionary);

bool isValid(const Object* root, CFPropertyListFormat format);

}  // namespace cf

#endif  // COREFOUNDATION_VALIDITY_H
