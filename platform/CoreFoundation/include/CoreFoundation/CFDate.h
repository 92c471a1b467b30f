// SPDX-License-Identifier: Apache-2.0

// Declares dates: points in time.
#ifndef COREFOUNDATION_CFDATE_H
#define COREFOUNDATION_CFDATE_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

// A number of seconds.
typedef double CFTimeInterval;

// A number of seconds since 2001-01-01T00:00:00Z, without leap seconds.
typedef CFTimeInterval CFAbsoluteTime;

typedef const struct __CFDate* CFDateRef;

CF_EXPORT CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime time);

CF_EXPORT CFTypeID CFDateGetTypeID(void);

CF_EXPORT CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFDATE_H
