// SPDX-License-Identifier: Apache-2.0

// Reads text as UTF-8, whatever bytes it holds.
#ifndef QV_SYSTEM_UTF8_H
#define QV_SYSTEM_UTF8_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qv::system {

struct Utf8Character {
    std::size_t length;  // in bytes, at least 1
    std::uint32_t codePoint;
    bool isWellFormed;  // false for bytes that are no UTF-8; they have no code point
};

// Returns the character that a text begins with. The text must not be empty. Bytes that are not
// UTF-8 count as one character up to the first byte that cannot continue it.
Utf8Character firstCharacter(std::string_view text);

bool isUtf8(std::string_view text);

// Returns the text with U+FFFD in the place of each character that is not UTF-8.
std::string withReplacements(std::string_view text);

// Returns the text without the bytes at its end that only begin a character.
std::string_view wholeCharacters(std::string_view text);

}  // namespace qv::system

#endif  // QV_SYSTEM_UTF8_H
