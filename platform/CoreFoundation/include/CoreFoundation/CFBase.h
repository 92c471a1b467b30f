// Types and functions common to all objects.
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

// An enumeration that a caller may give any number, which C++ allows only where its type is given.
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

// Any object. Null is no object.
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

// Where an object's memory comes from. There is one source, malloc(), under three names; the null
// allocator has nothing to give, so that nothing can be created with it, and frees nothing, which
// makes it the deallocator of bytes that stay the caller's.
typedef const struct __CFAllocator* CFAllocatorRef;

CF_EXPORT const CFAllocatorRef kCFAllocatorDefault;  // is null
CF_EXPORT const CFAllocatorRef kCFAllocatorSystemDefault;
CF_EXPORT const CFAllocatorRef kCFAllocatorMalloc;
CF_EXPORT const CFAllocatorRef kCFAllocatorNull;

CF_EXPORT CFTypeID CFAllocatorGetTypeID(void);

// The one object that stands for "no value" in a container. A binary property list can hold it; it
// is valid in none.
typedef const struct __CFNull* CFNullRef;

CF_EXPORT const CFNullRef kCFNull;

CF_EXPORT CFTypeID CFNullGetTypeID(void);

// The type of an object, one of the values that the types' own GetTypeID functions return.
CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef object);

// Adds a reference, and returns the object; gives one back, which may be the object's end. However
// deep a container is nested, its end takes no more of the stack than that of an empty one, unless
// it has callbacks of its own.
CF_EXPORT CFTypeRef CFRetain(CFTypeRef object);
CF_EXPORT void CFRelease(CFTypeRef object);

// The number of references. Of the objects that never end, such as the constants, a very large one;
// of a number that is small enough to stand in its reference, and is not counted, 1.
CF_EXPORT CFIndex CFGetRetainCount(CFTypeRef object);

// Whether two objects are of one type and hold the same; containers are compared element by
// element. Objects that are equal have the same hash, which is another in each run of a program, so
// that no document can be made to hold keys that collide. Containers that cannot be compared count
// as different: for want of memory, or because they are keys of keys more than 8 deep.
CF_EXPORT Boolean CFEqual(CFTypeRef one, CFTypeRef other);
CF_EXPORT CFHashCode CFHash(CFTypeRef object);

// A text for a programmer's eyes, of no fixed form. Show writes it to standard error, and takes
// null.
CF_EXPORT CFStringRef CFCopyDescription(CFTypeRef object);
CF_EXPORT void CFShow(CFTypeRef object);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFBASE_H
