// SPDX-License-Identifier: Apache-2.0

// Reads identifiers a second time, without the code of qvhost, for comparison.
#ifndef QV_FUZZ_IDENTIFIERS_H
#define QV_FUZZ_IDENTIFIERS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

namespace qv::fuzz {

inline std::optional<std::int32_t> numberOf(std::string_view text) {
    std::int64_t base = 10;
    std::int64_t sign = 1;
    if (text.size() > 1 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    } else if (!text.empty() && text[0] == '-') {
        sign = -1;
        text.remove_prefix(1);
    }
    if (text.empty()) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    for (const char c : text) {
        const std::string_view digits = "0123456789abcdef";
        const std::size_t digit =
            digits.find(static_cast<char>(c >= 'A' && c <= 'F' ? c - 'A' + 'a' : c));
        if (digit == std::string_view::npos || static_cast<std::int64_t>(digit) >= base) {
            return std::nullopt;
        }
        // The bound keeps the value from overflowing. It is far out of range.
        value = std::min(value * base + static_cast<std::int64_t>(digit), std::int64_t{1} << 40);
    }
    value *= sign;
    if (value < std::numeric_limits<std::int32_t>::min() ||
        value > std::numeric_limits<std::int32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<std::int32_t>(value);
}

}  // namespace qv::fuzz

#endif  // QV_FUZZ_IDENTIFIERS_H
