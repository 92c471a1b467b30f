// Errors, as those who report one see them.
#ifndef COREFOUNDATION_ERROR_H
#define COREFOUNDATION_ERROR_H

#include <CoreFoundation/CFError.h>

#include "Object.h"
#include "String.h"

namespace cf {

// Null where there is no memory.
CFErrorRef makeError(CFIndex code, Ref<String> description);

}  // namespace cf

#endif  // COREFOUNDATION_ERROR_H
