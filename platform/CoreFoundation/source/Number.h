// Numbers, as the readers and the writer see them.
#ifndef COREFOUNDATION_NUMBER_H
#define COREFOUNDATION_NUMBER_H

#include <CoreFoundation/CFNumber.h>

#include <cstdint>

#include "Object.h"

namespace cf {

// A whole number from -2^63 to 2^64-1, or a real one.
struct Number {
    enum class Kind : std::uint8_t {
        Signed,
        Large,  // over 2^63-1: `whole` holds the bits of a std::uint64_t
        Real,
    };

    Kind kind;
    std::uint8_t givenAs;  // one of the first six of CFNumberType
    union {
        std::int64_t whole;
        double real;
    };
};

// The objects of numbers; null where there is no memory.
const Object* makeNumber(const Number& number, CFAllocatorRef allocator = nullptr);
const Object* makeNumber(std::int64_t number);
const Object* makeNumber(std::uint64_t number);
const Object* makeNumber(double number);

// The number of an object of that type.
Number numberOf(const Object* object);

// Writes the number as CFNumberGetValue() does.
bool readNumber(const Number& number, CFNumberType type, void* value);

}  // namespace cf

#endif  // COREFOUNDATION_NUMBER_H
