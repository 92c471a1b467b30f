// SPDX-License-Identifier: Apache-2.0

// Declares data: immutable sequences of bytes.
#ifndef COREFOUNDATION_CFDATA_H
#define COREFOUNDATION_CFDATA_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFData* CFDataRef;

CF_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count);

// Creates data that refers to the given bytes, which must not change while the data exists. When
// the data is destroyed, it frees the bytes with free(), or leaves them alone if `bytesDeallocator`
// is kCFAllocatorNull. If the function fails, the bytes stay the caller's.
CF_EXPORT CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, const UInt8* bytes,
                                                CFIndex count, CFAllocatorRef bytesDeallocator);

CF_EXPORT CFTypeID CFDataGetTypeID(void);

CF_EXPORT CFIndex CFDataGetLength(CFDataRef data);
CF_EXPORT const UInt8* CFDataGetBytePtr(CFDataRef data);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFDATA_H
