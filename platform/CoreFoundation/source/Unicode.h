// UTF-8 and UTF-16: what is well formed, and how one becomes the other.
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

// The length of the ASCII bytes at the start.
std::size_t asciiPrefix(const char* bytes, std::size_t count);

// How many UTF-16 units the bytes make; kIllFormed where they are not well-formed UTF-8: overlong
// forms, surrogates and what lies beyond U+10FFFF are not. One exception: a byte A9 where a
// character should begin counts as well formed, and makes a U+FFFD.
constexpr std::size_t kIllFormed = SIZE_MAX;
std::size_t utf16Length(std::string_view utf8);

// The conversion of well-formed UTF-8. Writes as many units as utf16Length() says.
void utf8ToUtf16(std::string_view utf8, UniChar* units);

// Returns how many units there are in front of the first lone surrogate.
std::size_t wellFormedPrefix(const UniChar* units, std::size_t count);

// How many bytes of UTF-8 the units make; kIllFormed where there is a lone surrogate among them.
std::size_t utf8Length(const UniChar* units, std::size_t count);

// The conversion of well-formed UTF-16; returns the end of what was written.
char* utf16ToUtf8(const UniChar* units, std::size_t count, char* bytes);

// Writes the one to four bytes of a code point that is no surrogate; returns their end.
char* writeUtf8(std::uint32_t codePoint, char* bytes);

}  // namespace cf

#endif  // COREFOUNDATION_UNICODE_H
