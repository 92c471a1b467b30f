// Why something failed.
#ifndef COREFOUNDATION_CFERROR_H
#define COREFOUNDATION_CFERROR_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef struct __CFError* CFErrorRef;

CF_EXPORT CFTypeID CFErrorGetTypeID(void);

// One of the codes that the function which failed documents.
CF_EXPORT CFIndex CFErrorGetCode(CFErrorRef error);

// What went wrong, in English.
CF_EXPORT CFStringRef CFErrorCopyDescription(CFErrorRef error);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFERROR_H
