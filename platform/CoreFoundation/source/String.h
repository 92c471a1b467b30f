// SPDX-License-Identifier: Apache-2.0

// Declares strings for the readers and the writer.
//
// The contents of a string follow it in memory. They are ASCII bytes with a NUL behind them if all
// characters are ASCII, and UTF-16 units otherwise. So two strings are equal if their bytes are
// equal.
#ifndef COREFOUNDATION_STRING_H
#define COREFOUNDATION_STRING_H

#include <string_view>

#include "Buffer.h"
#include "Object.h"

namespace cf {

struct String : Object {
    String(std::size_t units, bool areWide)
        : Object(Type::String), isWide(areWide), length(units) {}

    const char* ascii() const { return reinterpret_cast<const char*>(this + 1); }
    const UniChar* wide() const { return reinterpret_cast<const UniChar*>(this + 1); }
    UniChar at(std::size_t index) const {
        return isWide ? wide()[index] : static_cast<unsigned char>(ascii()[index]);
    }

    bool isWide;
    std::size_t length;  // The number of UTF-16 units.
};

inline const String* asString(const Object* object) {
    return static_cast<const String*>(object);
}

// The functions below create a string. They return null if memory runs out.

// Creates a string from bytes that must be ASCII.
String* makeAsciiString(std::string_view ascii, CFAllocatorRef allocator = nullptr);

// Creates a string from UTF-8. Returns null also if the bytes are not well-formed.
// makeStringFromMarkedUtf8() leaves out a byte-order mark at the start.
String* makeStringFromUtf8(std::string_view utf8, CFAllocatorRef allocator = nullptr);
String* makeStringFromMarkedUtf8(std::string_view utf8, CFAllocatorRef allocator = nullptr);

String* makeStringFromLatin1(std::string_view latin1, CFAllocatorRef allocator = nullptr);
String* makeStringFromUnits(const UniChar* units, std::size_t count,
                            CFAllocatorRef allocator = nullptr);

bool equalStrings(const String& one, const String& other);

// Compares two strings by their UTF-16 units. Returns a negative number, zero or a positive number.
int compareStrings(const String& one, const String& other);

inline bool isAscii(const String& string, std::string_view text) {
    return !string.isWide && std::string_view(string.ascii(), string.length) == text;
}

}  // namespace cf

#endif  // COREFOUNDATION_STRING_H
