// SPDX-License-Identifier: Apache-2.0

// Declares numbers and the two booleans.
#ifndef COREFOUNDATION_CFNUMBER_H
#define COREFOUNDATION_CFNUMBER_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFBoolean* CFBooleanRef;

CF_EXPORT const CFBooleanRef kCFBooleanTrue;
CF_EXPORT const CFBooleanRef kCFBooleanFalse;

CF_EXPORT CFTypeID CFBooleanGetTypeID(void);
CF_EXPORT Boolean CFBooleanGetValue(CFBooleanRef boolean);

// The type of the C value from which a number is created, or to which it is converted. Each type of
// the second group is equivalent to a type of the first group.
typedef CF_ENUM(int) {
    kCFNumberSInt8Type = 1,
    kCFNumberSInt16Type = 2,
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat32Type = 5,
    kCFNumberFloat64Type = 6,

    kCFNumberCharType = 7,
    kCFNumberShortType = 8,
    kCFNumberIntType = 9,
    kCFNumberLongType = 10,
    kCFNumberLongLongType = 11,
    kCFNumberFloatType = 12,
    kCFNumberDoubleType = 13,
    kCFNumberCFIndexType = 14,
    kCFNumberNSIntegerType = 15,
    kCFNumberCGFloatType = 16,
    kCFNumberMaxType = 16
} CFNumberType;

typedef const struct __CFNumber* CFNumberRef;

// Creates a number from the C value of the given type to which `value` points.
CF_EXPORT CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type,
                                     const void* value);

CF_EXPORT CFTypeID CFNumberGetTypeID(void);

// CFNumberGetType returns one of the first six types. A whole number over 2^63-1, which only a
// document can hold, has the type kCFNumberSInt64Type.
CF_EXPORT CFNumberType CFNumberGetType(CFNumberRef number);
CF_EXPORT Boolean CFNumberIsFloatType(CFNumberRef number);

// Writes the number as a value of the given type, and returns whether that value equals the number.
// If it does not, the written value is an approximation. A whole number as a whole type loses its
// high bits. A real number as a whole type loses its fraction, and is limited to the range of the
// type. Any number as a real type becomes the nearest value.
CF_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFNUMBER_H
