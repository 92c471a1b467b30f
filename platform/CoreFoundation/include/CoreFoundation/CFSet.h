// Sets, as far as a binary property list can bring one in: they can be counted, and are valid in no
// property list.
#ifndef COREFOUNDATION_CFSET_H
#define COREFOUNDATION_CFSET_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFSet* CFSetRef;

CF_EXPORT CFTypeID CFSetGetTypeID(void);

CF_EXPORT CFIndex CFSetGetCount(CFSetRef set);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFSET_H
