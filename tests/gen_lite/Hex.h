// SPDX-License-Identifier: Apache-2.0

// Converts bytes to hexadecimal text and back. Other characters in the text are ignored.
#ifndef QV_TESTS_HEX_H
#define QV_TESTS_HEX_H

#include <cctype>
#include <string>

namespace qv::tests {

inline std::string fromHex(const std::string& text) {
    std::string digits;
    for (const char c : text) {
        if (std::isxdigit(static_cast<unsigned char>(c)) != 0) {
            digits.push_back(c);
        }
    }
    std::string bytes;
    for (std::size_t at = 0; at + 1 < digits.size(); at += 2) {
        bytes.push_back(static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

inline std::string toHex(const std::string& bytes) {
    const char* const digits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        text.push_back(digits[static_cast<unsigned char>(c) >> 4]);
        text.push_back(digits[static_cast<unsigned char>(c) & 15]);
    }
    return text;
}

}  // namespace qv::tests

#endif  // QV_TESTS_HEX_H
