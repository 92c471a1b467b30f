// What the readers of texts share.
#ifndef COREFOUNDATION_TEXT_H
#define COREFOUNDATION_TEXT_H

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace cf {

inline bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

constexpr bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

constexpr unsigned kNoDigit = 16;

constexpr unsigned hexDigit(char byte) {
    if (isDigit(byte)) {
        return static_cast<unsigned>(byte - '0');
    }
    const char lower = static_cast<char>(byte | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a' + 10) : kNoDigit;
}

// The line, counted from 1, in which the text ends.
inline std::size_t lastLine(std::string_view text) {
    return 1 + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace cf

#endif  // COREFOUNDATION_TEXT_H
