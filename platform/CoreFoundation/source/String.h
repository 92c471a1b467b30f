// Strings, as the readers and the writer see them.
//
// A string's contents stand behind it in memory, in one of two forms, and always in the first where
// it is possible: ASCII bytes with a NUL after them, or UTF-16 units. So equal strings are equal
// bytes.
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
    std::size_t length;  // in UTF-16 units
};

inline const String* asString(const Object* object) {
    return static_cast<const String*>(object);
}

// All of these give null where there is no memory.

// From bytes that are known to be ASCII.
String* makeAsciiString(std::string_view ascii, CFAllocatorRef allocator = nullptr);

// From UTF-8; null also where it is not well formed. The second form leaves out one byte-order mark
// at the start.
String* makeStringFromUtf8(std::string_view utf8, CFAllocatorRef allocator = nullptr);
String* makeStringFromMarkedUtf8(std::string_view utf8, CFAllocatorRef allocator = nullptr);

String* makeStringFromLatin1(std::string_view latin1, CFAllocatorRef allocator = nullptr);
String* makeStringFromUnits(const UniChar* units, std::size_t count,
                            CFAllocatorRef allocator = nullptr);

bool equalStrings(const String& one, const String& other);

// By UTF-16 units: negative, zero, positive.
int compareStrings(const String& one, const String& other);

inline bool isAscii(const String& string, std::string_view text) {
    return !string.isWide && std::string_view(string.ascii(), string.length) == text;
}

}  // namespace cf

#endif  // COREFOUNDATION_STRING_H
