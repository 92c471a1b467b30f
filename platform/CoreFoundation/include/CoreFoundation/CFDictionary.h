// Collections of values, found by their keys. They have no order of their own.
#ifndef COREFOUNDATION_CFDICTIONARY_H
#define COREFOUNDATION_CFDICTIONARY_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const void* (*CFDictionaryRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFDictionaryReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFDictionaryCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFDictionaryEqualCallBack)(const void* one, const void* other);
typedef CFHashCode (*CFDictionaryHashCallBack)(const void* value);

// What a dictionary does with its keys; a null function does nothing, and compares or hashes
// pointers.
typedef struct {
    CFIndex version;  // 0
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
    CFDictionaryHashCallBack hash;
} CFDictionaryKeyCallBacks;

// The same for its values.
typedef struct {
    CFIndex version;  // 0
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
} CFDictionaryValueCallBacks;

// For keys and values that are objects: retained while they are in the dictionary, compared and
// hashed with CFEqual and CFHash.
CF_EXPORT const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
CF_EXPORT const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

typedef void (*CFDictionaryApplierFunction)(const void* key, const void* value, void* context);

typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;

// Of keys that are equal the first stays. The callbacks are copied; null stands for none at all.
// Where those that retain, release, compare and hash are the constants' above, so is the
// description.
CF_EXPORT CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys,
                                             const void** values, CFIndex count,
                                             const CFDictionaryKeyCallBacks* keyCallBacks,
                                             const CFDictionaryValueCallBacks* valueCallBacks);

// `capacity` is a hint, and may be 0.
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* keyCallBacks,
    const CFDictionaryValueCallBacks* valueCallBacks);

CF_EXPORT CFTypeID CFDictionaryGetTypeID(void);

CF_EXPORT CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
CF_EXPORT Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key);

// Null where there is no such key. The second form tells that apart from a null that was stored; it
// leaves *value alone where there is no such key, and takes null for `value`.
CF_EXPORT const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);
CF_EXPORT Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key,
                                                const void** value);

// Writes as many keys and values as the dictionary counts, in one order. Either may be null.
CF_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys,
                                            const void** values);

// The function must not change the dictionary.
CF_EXPORT void CFDictionaryApplyFunction(CFDictionaryRef dictionary,
                                         CFDictionaryApplierFunction function, void* context);

// Add keeps the value that a key has already; Set replaces it and keeps the key. A dictionary that
// was not created mutable stays as it is.
CF_EXPORT void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, const void* key,
                                    const void* value);
CF_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key,
                                    const void* value);
CF_EXPORT void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key);
CF_EXPORT void CFDictionaryRemoveAllValues(CFMutableDictionaryRef dictionary);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFDICTIONARY_H
