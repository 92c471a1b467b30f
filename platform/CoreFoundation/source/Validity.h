// SPDX-License-Identifier: Apache-2.0

// Decides which trees are valid property lists.
#ifndef COREFOUNDATION_VALIDITY_H
#define COREFOUNDATION_VALIDITY_H

#include <CoreFoundation/CFPropertyList.h>

#include "Array.h"
#include "Dictionary.h"

namespace cf {

// Returns whether an object that is not a container is valid in a format.
bool isValidLeaf(const Object* object, CFPropertyListFormat format);

// Returns whether all keys of the dictionary are strings.
bool hasStringKeys(const Dictionary& dictionary);

// Returns whether the whole tree is valid in a format.
bool isValid(const Object* root, CFPropertyListFormat format);

}  // namespace cf

#endif  // COREFOUNDATION_VALIDITY_H
