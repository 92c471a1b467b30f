// SPDX-License-Identifier: Apache-2.0

// Declares arrays: ordered collections of values.
#ifndef COREFOUNDATION_CFARRAY_H
#define COREFOUNDATION_CFARRAY_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const void* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFArrayEqualCallBack)(const void* one, const void* other);

// The functions that an array of the framework calls for its values.
typedef struct {
    CFIndex version;  // The version is 0.
    CFArrayRetainCallBack retain;
    CFArrayReleaseCallBack release;
    CFArrayCopyDescriptionCallBack copyDescription;
    CFArrayEqualCallBack equal;
} CFArrayCallBacks;

// The callbacks for values that are objects. The array retains them and compares them with CFEqual.
// An array that is created with null instead does not retain its values, which may be any pointers,
// and compares them by their addresses. This layer knows no other callbacks: the functions that
// create an array return null for them.
CF_EXPORT const CFArrayCallBacks kCFTypeArrayCallBacks;

typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;

// Creates an array that cannot be changed.
CF_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                                   const CFArrayCallBacks* callBacks);

// Creates an empty array. `capacity` is a hint and may be 0.
CF_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFArrayCallBacks* callBacks);

CF_EXPORT CFTypeID CFArrayGetTypeID(void);

CF_EXPORT CFIndex CFArrayGetCount(CFArrayRef array);

// Returns the value at the index, or null if the index is outside the array.
CF_EXPORT const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

// Appends a value. Does nothing if the array was not created mutable.
CF_EXPORT void CFArrayAppendValue(CFMutableArrayRef array, const void* value);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFARRAY_H
