// Ordered collections.
#ifndef COREFOUNDATION_CFARRAY_H
#define COREFOUNDATION_CFARRAY_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const void* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFArrayEqualCallBack)(const void* one, const void* other);

// What an array does with its values; a null function does nothing, and compares pointers.
typedef struct {
    CFIndex version;  // 0
    CFArrayRetainCallBack retain;
    CFArrayReleaseCallBack release;
    CFArrayCopyDescriptionCallBack copyDescription;
    CFArrayEqualCallBack equal;
} CFArrayCallBacks;

// For values that are objects: retained while they are in the array, compared with CFEqual.
CF_EXPORT const CFArrayCallBacks kCFTypeArrayCallBacks;

typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;

// The callbacks are copied; null stands for none at all. Where those that retain, release and
// compare are kCFTypeArrayCallBacks', so is the description.
CF_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                                   const CFArrayCallBacks* callBacks);

// `capacity` is a hint, and may be 0.
CF_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFArrayCallBacks* callBacks);

CF_EXPORT CFTypeID CFArrayGetTypeID(void);

CF_EXPORT CFIndex CFArrayGetCount(CFArrayRef array);

// Null for an index outside the array.
CF_EXPORT const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

// An array that was not created mutable stays as it is.
CF_EXPORT void CFArrayAppendValue(CFMutableArrayRef array, const void* value);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFARRAY_H
