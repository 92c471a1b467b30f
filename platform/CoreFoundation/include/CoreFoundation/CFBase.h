// SPDX-License-Identifier: Apache-2.0

// Declares the types and functions that all objects share.
#ifndef COREFOUNDATION_CFBASE_H
#define COREFOUNDATION_CFBASE_H

#include <stdint.h>

#ifdef __cplusplus
#define CF_EXTERN_C_BEGIN extern "C" {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif

// Begins an enumeration whose variables may hold any number. C++ allows that only if the
// enumeration names its underlying type.
#ifdef __cplusplus
#define CF_ENUM(type) enum : type
#else
#define CF_ENUM(type) enum
#endif

#define CF_EXPORT extern __attribute__((visibility("default")))

CF_EXTERN_C_BEGIN

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef float Float32;
typedef double Float64;
typedef UInt16 UniChar;
typedef UInt32 UTF32Char;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef signed long CFIndex;

// A reference to an object of any type. Null refers to no object.
typedef const void* CFTypeRef;

typedef const struct __CFString* CFStringRef;
typedef struct __CFString* CFMutableStringRef;

enum { kCFNotFound = -1 };

typedef enum {
    kCFCompareLessThan = -1,
    kCFCompareEqualTo = 0,
    kCFCompareGreaterThan = 1
} CFComparisonResult;

typedef struct {
    CFIndex location;
    CFIndex length;
} CFRange;

static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
    CFRange range;
    range.location = location;
    range.length = length;
    return range;
}

// An allocator: the source of an object's memory. The default, the system and the malloc allocator
// all use malloc(). The null allocator has no memory, so each function that creates an object with
// it returns null. As the deallocator of bytes it frees nothing, so the bytes stay the caller's.
typedef const struct __CFAllocator* CFAllocatorRef;

CF_EXPORT const CFAllocatorRef kCFAllocatorDefault;  // This reference is null.
CF_EXPORT const CFAllocatorRef kCFAllocatorSystemDefault;
CF_EXPORT const CFAllocatorRef kCFAllocatorMalloc;
CF_EXPORT const CFAllocatorRef kCFAllocatorNull;

CF_EXPORT CFTypeID CFAllocatorGetTypeID(void);

// The one object that means "no value" in a container. A binary property list can hold it, but a
// tree that holds it is not a valid property list in any format.
typedef const struct __CFNull* CFNullRef;

CF_EXPORT const CFNullRef kCFNull;

CF_EXPORT CFTypeID CFNullGetTypeID(void);

// Returns the type of the object: the value that the GetTypeID function of its type returns.
CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef object);

// CFRetain adds a reference and returns the object. CFRelease removes a reference, and destroys the
// object if that was the last one. Destroying a deeply nested container takes no more stack than
// destroying an empty one.
CF_EXPORT CFTypeRef CFRetain(CFTypeRef object);
CF_EXPORT void CFRelease(CFTypeRef object);

// Returns the number of references. The result is very large for an object that is never destroyed,
// such as a constant. The result is 1 for a small number, which is stored in its reference and is
// not counted.
CF_EXPORT CFIndex CFGetRetainCount(CFTypeRef object);

// CFEqual returns whether two objects have the same type and the same contents; it compares
// containers element by element. Two containers also count as different if memory runs out, or if
// they are keys within keys more than 8 deep.
//
// CFHash returns the same hash for equal objects. The hash differs in each run of a program, so
// that nobody can write a document whose keys collide.
CF_EXPORT Boolean CFEqual(CFTypeRef one, CFTypeRef other);
CF_EXPORT CFHashCode CFHash(CFTypeRef object);

// CFCopyDescription returns a text for programmers, which has no fixed form. At present it is the
// XML document of a property list, and the type of another object. CFShow writes the text to
// standard error. The argument may be null.
CF_EXPORT CFStringRef CFCopyDescription(CFTypeRef object);
CF_EXPORT void CFShow(CFTypeRef object);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFBASE_H
