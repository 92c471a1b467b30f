// SPDX-License-Identifier: Apache-2.0

// Checks and converts UTF-8 and UTF-16.
#ifndef COREFOUNDATION_UNICODE_H
#define COREFOUNDATION_UNICODE_H

#include <CoreFoundation/CFBase.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace cf {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

constexpr std::uint32_t kLastCodePoint = 0x10FFFF;

constexpr bool isHighSurrogate(std::uint32_t unit) {
    return (unit & 0xFFFFFC00U) == 0xD800;
}
constexpr bool isLowSurrogate(std::uint32_t unit) {
    return (unit & 0xFFFFFC00U) == 0xDC00;
}
constexpr bool isSurrogate(std::uint32_t unit) {
    return (unit & 0xFFFFF800U) == 0xD800;
}

// Returns the number of ASCII bytes at the start.
std::size_t asciiPrefix(const char* bytes, std::size_t count);

// Returns the number of UTF-16 units that the bytes yield, or kIllFormed if the bytes are not
// well-formed UTF-8. Overlong forms, surrogates and code points beyond U+10FFFF are not
// well-formed. There is one exception: a byte A9 where a character begins counts as well-formed and
// yields a U+FFFD.
constexpr std::size_t kIllFormed = SIZE_MAX;
std::size_t utf16Length(std::string_view utf8);

// Converts well-formed UTF-8. Writes as many units as utf16Length() returns.
void utf8ToUtf16(std::string_view utf8, UniChar* units);

// Returns the number of units in front of the first lone surrogate.
std::size_t wellFormedPrefix(const UniChar* units, std::size_t count);

// Returns the number of UTF-8 bytes that the units yield, or kIllFormed if one of the units is a
// lone surrogate.
std::size_t utf8Length(const UniChar* units, std::size_t count);

// Converts well-formed UTF-16. Returns the end of the written bytes.
char* utf16ToUtf8(const UniChar* units, std::size_t count, char* bytes);

// Writes the one to four bytes of a code point that is not a surrogate. Returns the end of the
// written bytes.
char* writeUtf8(std::uint32_t codePoint, char* bytes);

}  // namespace cf

#endif  // COREFOUNDATION_UNICODE_H
