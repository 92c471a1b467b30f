#include "cli/Numbers.h"

#include <fmt/format.h>

#include <charconv>
#include <system_error>

#include "cli/InputError.h"
#include "cli/Quotation.h"

namespace qv::host {

namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";

bool consistsOf(std::string_view text, std::string_view characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

// `what` names the number and `range` the numbers that may be written, both for the message.
int32_t parseNumber(std::string_view text, std::string_view what, std::string_view range) {
    const bool hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    const bool negative = text.substr(0, 1) == "-";
    const std::string_view digits = text.substr(hexadecimal ? 2 : (negative ? 1 : 0));
    if (!consistsOf(digits, hexadecimal ? kHexDigits : kDigits)) {
        throw InputError(
            fmt::format("{} must be a number ({}), not {}", what, range, quotation(text)));
    }
    const std::string_view number = hexadecimal ? digits : text;
    int32_t value = 0;
    const std::from_chars_result result =
        std::from_chars(number.data(), number.data() + number.size(), value, hexadecimal ? 16 : 10);
    if (result.ec != std::errc()) {
        throw InputError(fmt::format("{} {} is out of range ({})", what, quotation(text), range));
    }
    return value;
}

}  // namespace

int32_t parseIdentifier(std::string_view text) {
    return parseNumber(text, "identifier", "-2147483648 to 2147483647, or 0x0 to 0x7fffffff");
}

int32_t parseLevel(std::string_view text) {
    return parseNumber(text, "level", "0 to 7");
}

}  // namespace qv::host
