// SPDX-License-Identifier: Apache-2.0

// Encodes and decodes base64, the form in which the measured documents are kept.
#ifndef QV_TESTS_BASE64_H
#define QV_TESTS_BASE64_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace qv::tests {

constexpr std::string_view kBase64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

inline std::string toBase64(std::string_view bytes) {
    std::string text;
    for (std::size_t index = 0; index < bytes.size(); index += 3) {
        const std::size_t count = std::min<std::size_t>(bytes.size() - index, 3);
        std::uint32_t group = 0;
        for (std::size_t byte = 0; byte < 3; ++byte) {
            group =
                group << 8 | (byte < count ? static_cast<unsigned char>(bytes[index + byte]) : 0);
        }
        for (std::size_t digit = 0; digit < 4; ++digit) {
            text += digit > count ? '=' : kBase64Digits[group >> (18 - 6 * digit) & 63];
        }
    }
    return text;
}

inline std::string fromBase64(std::string_view text) {
    std::string bytes;
    std::uint32_t group = 0;
    int bits = 0;
    for (const char digit : text) {
        const auto value = kBase64Digits.find(digit);
        if (value == std::string_view::npos) {
            break;
        }
        group = group << 6 | static_cast<std::uint32_t>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(group >> bits & 0xFF);
        }
    }
    return bytes;
}

}  // namespace qv::tests

#endif  // QV_TESTS_BASE64_H
