// SPDX-License-Identifier: Apache-2.0

#include "Unicode.h"

#include <cstring>

namespace cf {

namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080U;

// The code point at the start of some bytes, and the number of bytes that it takes. The number is 0
// if the bytes are not well-formed.
struct Decoded {
    std::uint32_t codePoint;
    std::size_t size;
};

constexpr Decoded kNothing = {0, 0};

// The copyright sign in ISO Latin 1. Texts that were declared as UTF-8 often held it, so readers
// have always accepted it.
constexpr unsigned kLoneCopyrightSign = 0xA9;

// Decodes the first code point. The bytes that are allowed after a lead byte are those of the table
// of well-formed sequences, which excludes the overlong forms, the surrogates and the code points
// beyond the last one.
Decoded decode(const unsigned char* bytes, std::size_t count) {
    const auto continues = [bytes](std::size_t index) { return (bytes[index] & 0xC0U) == 0x80; };
    const unsigned lead = bytes[0];
    if (lead < 0x80) {
        return {lead, 1};
    }
    if (lead == kLoneCopyrightSign) {
        return {0xFFFD, 1};
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return kNothing;
    }
    if (lead < 0xE0) {
        if (count < 2 || !continues(1)) {
            return kNothing;
        }
        return {(lead & 0x1FU) << 6 | (bytes[1] & 0x3FU), 2};
    }
    if (lead < 0xF0) {
        if (count < 3 || !continues(1) || !continues(2) || (lead == 0xE0 && bytes[1] < 0xA0) ||
            (lead == 0xED && bytes[1] > 0x9F)) {
            return kNothing;
        }
        return {(lead & 0x0FU) << 12 | (bytes[1] & 0x3FU) << 6 | (bytes[2] & 0x3FU), 3};
    }
    if (count < 4 || !continues(1) || !continues(2) || !continues(3) ||
        (lead == 0xF0 && bytes[1] < 0x90) || (lead == 0xF4 && bytes[1] > 0x8F)) {
        return kNothing;
    }
    return {(lead & 0x07U) << 18 | (bytes[1] & 0x3FU) << 12 | (bytes[2] & 0x3FU) << 6 |
                (bytes[3] & 0x3FU),
            4};
}

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

std::size_t asciiPrefix(const char* bytes, std::size_t count) {
    std::size_t length = 0;
    for (; length + sizeof(std::uint64_t) <= count; length += sizeof(std::uint64_t)) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, bytes + length, sizeof eight);
        if ((eight & kHighBits) != 0) {
            break;
        }
    }
    while (length < count && static_cast<unsigned char>(bytes[length]) < 0x80) {
        ++length;
    }
    return length;
}

std::size_t utf16Length(std::string_view utf8) {
    std::size_t units = 0;
    for (std::size_t at = 0; at < utf8.size();) {
        const std::size_t ascii = asciiPrefix(utf8.data() + at, utf8.size() - at);
        units += ascii;
        at += ascii;
        if (at < utf8.size()) {
            const Decoded next = decode(bytesOf(utf8) + at, utf8.size() - at);
            if (next.size == 0) {
                return kIllFormed;
            }
            units += next.size == 4 ? 2 : 1;
            at += next.size;
        }
    }
    return units;
}

void utf8ToUtf16(std::string_view utf8, UniChar* units) {
    for (std::size_t at = 0; at < utf8.size();) {
        const Decoded next = decode(bytesOf(utf8) + at, utf8.size() - at);
        if (next.codePoint < 0x10000) {
            *units++ = static_cast<UniChar>(next.codePoint);
        } else {
            *units++ = static_cast<UniChar>(0xD7C0 + (next.codePoint >> 10));
            *units++ = static_cast<UniChar>(0xDC00 | (next.codePoint & 0x3FF));
        }
        at += next.size;
    }
}

std::size_t wellFormedPrefix(const UniChar* units, std::size_t count) {
    std::size_t at = 0;
    while (at < count) {
        if (!isSurrogate(units[at])) {
            at += 1;
        } else if (isHighSurrogate(units[at]) && at + 1 < count && isLowSurrogate(units[at + 1])) {
            at += 2;
        } else {
            break;
        }
    }
    return at;
}

std::size_t utf8Length(const UniChar* units, std::size_t count) {
    std::size_t bytes = 0;
    for (std::size_t at = 0; at < count; ++at) {
        if (units[at] < 0x80) {
            bytes += 1;
        } else if (units[at] < 0x800) {
            bytes += 2;
        } else if (!isSurrogate(units[at])) {
            bytes += 3;
        } else if (isHighSurrogate(units[at]) && at + 1 < count && isLowSurrogate(units[at + 1])) {
            bytes += 4;
            ++at;
        } else {
            return kIllFormed;
        }
    }
    return bytes;
}

char* utf16ToUtf8(const UniChar* units, std::size_t count, char* bytes) {
    for (std::size_t at = 0; at < count; ++at) {
        std::uint32_t codePoint = units[at];
        if (isHighSurrogate(codePoint)) {
            ++at;
            codePoint = 0x10000 + ((codePoint & 0x3FF) << 10 | (units[at] & 0x3FFU));
        }
        bytes = writeUtf8(codePoint, bytes);
    }
    return bytes;
}

char* writeUtf8(std::uint32_t codePoint, char* bytes) {
    const auto put = [&bytes](std::uint32_t byte) { *bytes++ = static_cast<char>(byte); };
    if (codePoint < 0x80) {
        put(codePoint);
    } else if (codePoint < 0x800) {
        put(0xC0 | codePoint >> 6);
        put(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        put(0xE0 | codePoint >> 12);
        put(0x80 | (codePoint >> 6 & 0x3F));
        put(0x80 | (codePoint & 0x3F));
    } else {
        put(0xF0 | codePoint >> 18);
        put(0x80 | (codePoint >> 12 & 0x3F));
        put(0x80 | (codePoint >> 6 & 0x3F));
        put(0x80 | (codePoint & 0x3F));
    }
    return bytes;
}

}  // namespace cf
