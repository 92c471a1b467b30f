// SPDX-License-Identifier: Apache-2.0

// Declares dictionaries: unordered collections of values that are found by their keys.
#ifndef COREFOUNDATION_CFDICTIONARY_H
#define COREFOUNDATION_CFDICTIONARY_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const void* (*CFDictionaryRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFDictionaryReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFDictionaryCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFDictionaryEqualCallBack)(const void* one, const void* other);
typedef CFHashCode (*CFDictionaryHashCallBack)(const void* value);

// The functions that a dictionary of the framework calls for its keys.
typedef struct {
    CFIndex version;  // The version is 0.
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
    CFDictionaryHashCallBack hash;
} CFDictionaryKeyCallBacks;

// The functions that a dictionary of the framework calls for its values.
typedef struct {
    CFIndex version;  // The version is 0.
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
} CFDictionaryValueCallBacks;

// The callbacks for keys and values that are objects. The dictionary retains them, and compares and
// hashes them with CFEqual and CFHash. If null is given instead, the dictionary does not retain its
// keys or its values, which may be any pointers, and compares them by their addresses. This layer
// knows no other callbacks: the functions that create a dictionary return null for them.
CF_EXPORT const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
CF_EXPORT const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

typedef void (*CFDictionaryApplierFunction)(const void* key, const void* value, void* context);

typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;

// Creates a dictionary that cannot be changed. If several keys are equal, the dictionary holds the
// first of them with its value.
CF_EXPORT CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys,
                                             const void** values, CFIndex count,
                                             const CFDictionaryKeyCallBacks* keyCallBacks,
                                             const CFDictionaryValueCallBacks* valueCallBacks);

// Creates an empty dictionary. `capacity` is a hint and may be 0.
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* keyCallBacks,
    const CFDictionaryValueCallBacks* valueCallBacks);

CF_EXPORT CFTypeID CFDictionaryGetTypeID(void);

CF_EXPORT CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
CF_EXPORT Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key);

// CFDictionaryGetValue returns the value of the key, or null if the dictionary does not hold the
// key. CFDictionaryGetValueIfPresent returns whether the dictionary holds the key, and writes the
// value, which may be null, to *value. It leaves *value unchanged if the dictionary does not hold
// the key; `value` may be null.
CF_EXPORT const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);
CF_EXPORT Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key,
                                                const void** value);

// Writes all keys to `keys` and all values to `values`, both in the same order. Either may be null.
CF_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys,
                                            const void** values);

// Calls the function for each key and its value. The function must not change the dictionary.
CF_EXPORT void CFDictionaryApplyFunction(CFDictionaryRef dictionary,
                                         CFDictionaryApplierFunction function, void* context);

// AddValue does nothing if the dictionary holds the key already. SetValue replaces the value of
// such a key and keeps the key itself. None of these functions changes a dictionary that was not
// created mutable.
CF_EXPORT void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, const void* key,
                                    const void* value);
CF_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key,
                                    const void* value);
CF_EXPORT void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key);
CF_EXPORT void CFDictionaryRemoveAllValues(CFMutableDictionaryRef dictionary);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFDICTIONARY_H
