// SPDX-License-Identifier: Apache-2.0

#include "CoreFoundation/StringProperties.h"

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CoreFoundation/Tree.h"
#include "platform/CoreFoundation/Objects.h"
#include "support/Require.h"

namespace qv::fuzz {
namespace {

using tests::own;
using tests::Owned;

constexpr CFStringEncoding kEncodings[] = {kCFStringEncodingUTF8, kCFStringEncodingASCII,
                                           kCFStringEncodingISOLatin1};

void append(std::u16string& units, std::uint32_t character) {
    if (character < 0x10000) {
        units += static_cast<char16_t>(character);
    } else {
        units += static_cast<char16_t>(0xD7C0 + (character >> 10));
        units += static_cast<char16_t>(0xDC00 + (character & 0x3FF));
    }
}

// Returns the code units of well-formed UTF-8. The decoder is slow and plain: it decodes each
// sequence without a check, and then checks that the sequence is the only encoding of the
// character.
std::optional<std::u16string> decoded(std::string_view bytes) {
    std::u16string units;
    for (std::size_t index = 0; index < bytes.size();) {
        const auto at = [&](std::size_t offset) {
            return index + offset < bytes.size()
                       ? static_cast<std::uint32_t>(
                             static_cast<unsigned char>(bytes[index + offset]))
                       : 0;
        };
        const std::uint32_t lead = at(0);
        // The copyright sign of ISO Latin 1 is the only exception.
        if (lead == 0xA9) {
            units += u'\ufffd';
            ++index;
            continue;
        }
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        const std::uint32_t leadBits[] = {0, 0x00, 0xC0, 0xE0, 0xF0};
        std::uint32_t character = lead ^ leadBits[length];
        for (std::size_t offset = 1; offset < length; ++offset) {
            if ((at(offset) & 0xC0) != 0x80) {
                return std::nullopt;
            }
            character = character << 6 | (at(offset) & 0x3F);
        }
        const std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
        const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
        // No sequence begins with a byte from 80 to BF.
        if (character < smallest[length] || character > 0x10FFFF || isSurrogate ||
            (lead >= 0x80 && lead < 0xC0)) {
            return std::nullopt;
        }
        append(units, character);
        index += length;
    }
    return units;
}

std::optional<std::string> encoded(const std::u16string& units, CFStringEncoding encoding) {
    std::string bytes;
    if (!isWellFormed(units)) {
        return std::nullopt;
    }
    for (std::size_t index = 0; index < units.size(); ++index) {
        std::uint32_t character = units[index];
        if (character >= 0xD800 && character <= 0xDFFF) {
            character = ((character - 0xD7C0) << 10) + (units[++index] - 0xDC00U);
        }
        const auto put = [&bytes](std::uint32_t byte) { bytes += static_cast<char>(byte); };
        if (encoding != kCFStringEncodingUTF8) {
            if (character > (encoding == kCFStringEncodingASCII ? 0x7FU : 0xFFU)) {
                return std::nullopt;
            }
            put(character);
        } else if (character < 0x80) {
            put(character);
        } else if (character < 0x800) {
            put(0xC0 | character >> 6);
            put(0x80 | (character & 0x3F));
        } else if (character < 0x10000) {
            put(0xE0 | character >> 12);
            put(0x80 | (character >> 6 & 0x3F));
            put(0x80 | (character & 0x3F));
        } else {
            put(0xF0 | character >> 18);
            put(0x80 | (character >> 12 & 0x3F));
            put(0x80 | (character >> 6 & 0x3F));
            put(0x80 | (character & 0x3F));
        }
    }
    return bytes;
}

void checkBytesOut(CFStringRef string, const std::u16string& units, CFStringEncoding encoding) {
    const auto expected = encoded(units, encoding);
    const std::size_t size = expected ? expected->size() + 1 : 4 * units.size() + 1;
    // The buffer is on the heap and has the exact size, so the sanitizers see a write past its end.
    std::vector<char> buffer(size);
    const auto fits = [&](std::size_t room) {
        return CFStringGetCString(string, buffer.data(), static_cast<CFIndex>(room), encoding) !=
               FALSE;
    };
    require(fits(size) == expected.has_value(),
            "an encoding that has all characters fails, or another one does not");
    if (expected) {
        require(std::memcmp(buffer.data(), expected->c_str(), size) == 0,
                "the encoded bytes are wrong");
        buffer.resize(size - 1);
        buffer.shrink_to_fit();
        require(!fits(size - 1), "a buffer that is one byte too small is accepted");
    }

    const bool isAscii =
        std::all_of(units.begin(), units.end(), [](char16_t u) { return u < 0x80; });
    const char* const direct = CFStringGetCStringPtr(string, encoding);
    require((direct != nullptr) == isAscii,
            "an ASCII string does not return its bytes, or another one does");
    require(direct == nullptr || std::memcmp(direct, expected->c_str(), size) == 0,
            "the string's own bytes are wrong");
}

// Checks all accessors of a string that has these code units.
void check(CFStringRef string, const std::u16string& units) {
    const auto length = static_cast<CFIndex>(units.size());
    require(CFStringGetLength(string) == length, "the length is wrong");
    require(tests::unitsOf(string) == units, "the code units are wrong");
    for (CFIndex index = 0; index < length; ++index) {
        require(
            CFStringGetCharacterAtIndex(string, index) == units[static_cast<std::size_t>(index)],
            "a code unit is wrong");
    }
    require(CFStringGetCharacterAtIndex(string, length) == 0, "there is a code unit at the end");
    for (const CFStringEncoding encoding : kEncodings) {
        checkBytesOut(string, units, encoding);
    }
    const auto same = tests::makeString(units);
    require(tests::equal(string, same.get()), "equal strings are not equal");
    require(CFHash(string) == CFHash(same.get()), "equal strings have different hashes");
    require(CFStringCompare(string, same.get(), 0) == kCFCompareEqualTo,
            "equal strings compare as different");
    require(static_cast<bool>(own(CFCopyDescription(string))), "a string has no description");
}

void checkBytes(std::string_view bytes, CFStringEncoding encoding) {
    std::optional<std::u16string> units;
    if (encoding == kCFStringEncodingUTF8) {
        units = decoded(bytes);
        if (units && !units->empty() && units->front() == 0xFEFF) {
            units->erase(0, 1);
        }
    } else {
        units.emplace();
        for (const char byte : bytes) {
            *units += static_cast<unsigned char>(byte);
        }
    }
    const auto string = own(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                                static_cast<CFIndex>(bytes.size()), encoding, FALSE));
    require(static_cast<bool>(string) == units.has_value(),
            "well-formed bytes are refused, or others are not");
    if (string) {
        check(string.get(), *units);
    }

    // A C string ends at the first NUL.
    const std::string text(bytes.data(), std::min(bytes.find('\0'), bytes.size()));
    const auto ofText = own(CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), encoding));
    const auto ofBytes = own(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                static_cast<CFIndex>(text.size()), encoding, TRUE));
    require(static_cast<bool>(ofText) == static_cast<bool>(ofBytes),
            "only one of text and bytes is refused");
    require(!ofText || tests::equal(ofText.get(), ofBytes.get()), "text and bytes differ");
}

int signOf(int number) {
    return number < 0 ? -1 : number > 0 ? 1 : 0;
}

void checkComparison(const std::u16string& one, const std::u16string& other) {
    const auto first = tests::makeString(one);
    const auto second = tests::makeString(other);
    const int expected = signOf(one.compare(other));
    require(CFStringCompare(first.get(), second.get(), 0) == expected,
            "the order of two strings is wrong");
    require(CFStringCompare(second.get(), first.get(), 0) == -expected,
            "the order of two exchanged strings is wrong");
    require(tests::equal(first.get(), second.get()) == (expected == 0), "equality is wrong");
}

}  // namespace

void checkStringProperties(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    for (const CFStringEncoding encoding : kEncodings) {
        checkBytes(bytes, encoding);
    }

    std::u16string units(size / 2, u'\0');
    for (std::size_t index = 0; index < units.size(); ++index) {
        units[index] = static_cast<char16_t>(data[2 * index] << 8 | data[2 * index + 1]);
    }
    check(tests::makeString(units).get(), units);
    checkComparison(units.substr(0, units.size() / 2), units.substr(units.size() / 2));
}

}  // namespace qv::fuzz
