// SPDX-License-Identifier: Apache-2.0

// Declares numbers for the readers and the writer.
#ifndef COREFOUNDATION_NUMBER_H
#define COREFOUNDATION_NUMBER_H

#include <CoreFoundation/CFNumber.h>

#include <cstdint>

#include "Object.h"

namespace cf {

// A whole number from -2^63 to 2^64-1, or a real number.
struct Number {
    enum class Kind : std::uint8_t {
        Signed,
        Large,  // A number over 2^63-1: `whole` holds the bits of a std::uint64_t.
        Real,
    };

    Kind kind;
    std::uint8_t givenAs;  // One of the first six values of CFNumberType.
    union {
        std::int64_t whole;
        double real;
    };
};

// Creates the object of a number. Returns null if memory runs out.
const Object* makeNumber(const Number& number, CFAllocatorRef allocator = nullptr);
const Object* makeNumber(std::int64_t number);
const Object* makeNumber(std::uint64_t number);
const Object* makeNumber(double number);

// Returns the number of an object, whose type must be Type::Number.
Number numberOf(const Object* object);

// Writes the number as CFNumberGetValue() does.
bool readNumber(const Number& number, CFNumberType type, void* value);

}  // namespace cf

#endif  // COREFOUNDATION_NUMBER_H
