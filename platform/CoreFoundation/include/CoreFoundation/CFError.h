// SPDX-License-Identifier: Apache-2.0

// Declares errors: the reasons why a function failed.
#ifndef COREFOUNDATION_CFERROR_H
#define COREFOUNDATION_CFERROR_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef struct __CFError* CFErrorRef;

CF_EXPORT CFTypeID CFErrorGetTypeID(void);

// Returns the code of the error. The function that failed documents its codes.
CF_EXPORT CFIndex CFErrorGetCode(CFErrorRef error);

// Returns a description of the error in English.
CF_EXPORT CFStringRef CFErrorCopyDescription(CFErrorRef error);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFERROR_H
