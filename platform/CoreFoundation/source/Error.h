// SPDX-License-Identifier: Apache-2.0

// Declares how an error is created.
#ifndef COREFOUNDATION_ERROR_H
#define COREFOUNDATION_ERROR_H

#include <CoreFoundation/CFError.h>

#include "Object.h"
#include "String.h"

namespace cf {

// Creates an error and takes over the description. Returns null if the description is null or if
// memory runs out.
CFErrorRef makeError(CFIndex code, Ref<String> description);

}  // namespace cf

#endif  // COREFOUNDATION_ERROR_H
