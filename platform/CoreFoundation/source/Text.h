// SPDX-License-Identifier: Apache-2.0

// Provides functions that several readers of text use.
#ifndef COREFOUNDATION_TEXT_H
#define COREFOUNDATION_TEXT_H

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace cf {

inline bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

// `character` is a byte of UTF-8, which may be negative, or a UTF-16 unit.
constexpr bool isDigit(int character) {
    return character >= '0' && character <= '9';
}

constexpr unsigned kNoDigit = 16;

constexpr unsigned hexDigit(int character) {
    if (isDigit(character)) {
        return static_cast<unsigned>(character - '0');
    }
    const int lower = character | 0x20;
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a' + 10) : kNoDigit;
}

// Returns the line, counted from 1, in which the text ends.
template <typename Character>
std::size_t lastLine(const Character* begin, const Character* end) {
    return 1 + static_cast<std::size_t>(std::count(begin, end, Character{'\n'}));
}

}  // namespace cf

#endif  // COREFOUNDATION_TEXT_H
