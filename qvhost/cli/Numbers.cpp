// SPDX-License-Identifier: Apache-2.0

#include "cli/Numbers.h"

#include <fmt/format.h>

#include <charconv>
#include <system_error>
#include <unordered_set>

#include "cli/InputError.h"
#include "cli/Quotation.h"

namespace qv::host {

namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";

bool consistsOf(std::string_view text, std::string_view characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

// Stores the number. Returns std::errc() or what is wrong with the text.
std::errc parseNumber(std::string_view text, int32_t& number) {
    const bool hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    const bool negative = text.substr(0, 1) == "-";
    const std::string_view digits = text.substr(hexadecimal ? 2 : (negative ? 1 : 0));
    if (!consistsOf(digits, hexadecimal ? kHexDigits : kDigits)) {
        return std::errc::invalid_argument;
    }
    const std::string_view signedDigits = hexadecimal ? digits : text;
    return std::from_chars(signedDigits.data(), signedDigits.data() + signedDigits.size(), number,
                           hexadecimal ? 16 : 10)
        .ec;
}

}  // namespace

int32_t parseIdentifier(std::string_view text) {
    constexpr char kRange[] = "-2147483648 to 2147483647, or 0x0 to 0x7fffffff";
    int32_t number = 0;
    const std::errc problem = parseNumber(text, number);
    if (problem == std::errc::invalid_argument) {
        throw InputError(
            fmt::format("identifier must be a number ({}), not {}", kRange, quotation(text)));
    }
    if (problem != std::errc()) {
        throw InputError(
            fmt::format("identifier {} is out of range ({})", quotation(text), kRange));
    }
    return number;
}

std::vector<int32_t> parseIdentifiers(const std::vector<std::string>& texts) {
    std::vector<int32_t> numbers;
    numbers.reserve(texts.size());
    std::unordered_set<int32_t> known;
    for (const std::string& text : texts) {
        numbers.push_back(parseIdentifier(text));
        if (!known.insert(numbers.back()).second) {
            throw InputError(fmt::format("identifier {} occurs twice", numbers.back()));
        }
    }
    return numbers;
}

int32_t parseLevel(std::string_view text) {
    constexpr int32_t kMost = 7;
    int32_t number = 0;
    if (parseNumber(text, number) != std::errc() || number < 0 || number > kMost) {
        throw InputError(
            fmt::format("a level is a number from 0 to {}, not {}", kMost, quotation(text)));
    }
    return number;
}

}  // namespace qv::host
