// Declares arrays: ordered collections of values.
#ifndef COREFOUNDATION_CFARRAY_H
#define COREFOUNDATION_CFARRAY_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const void* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFArrayEqualCallBack)(const void* one, const void* other);

// The functions that an array calls for its values. An array without `retain` and `release` does
// not retain its values, and an array without `equal` compares them by their addresses.
typedef struct {
    CFIndex version;  // The version is 0.
    CFArrayRetainCallBack retain;
    CFArrayReleaseCallBack release;
    CFArrayCopyDescriptionCallBack copyDescription;
    CFArrayEqualCallBack equal;
} CFArrayCallBacks;

// The callbacks for values that are objects. The array retains them and compares them with CFEqual.
CF_EXPORT const CFArrayCallBacks kCFTypeArrayCallBacks;

typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;

// Creates an array that cannot be changed. The callbacks are copied; null means that there are
// none. If `retain`, `release` and `equal` are those of kCFTypeArrayCallBacks, the array treats its
// values as objects and does not call `copyDescription`.
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
