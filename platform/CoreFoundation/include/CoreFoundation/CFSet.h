// SPDX-License-Identifier: Apache-2.0

// Declares sets. Only a binary document can create a set; the caller can count its members. A tree
// that holds a set is not a valid property list in any format.
#ifndef COREFOUNDATION_CFSET_H
#define COREFOUNDATION_CFSET_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFSet* CFSetRef;

CF_EXPORT CFTypeID CFSetGetTypeID(void);

CF_EXPORT CFIndex CFSetGetCount(CFSetRef set);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFSET_H
