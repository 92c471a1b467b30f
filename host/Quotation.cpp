#include "Quotation.h"

#include <fmt/format.h>

#include <cstddef>

namespace qv::host {

namespace {

constexpr std::size_t kLongestQuotation = 40;

}  // namespace

std::string quotation(std::string_view text) {
    if (text.size() <= kLongestQuotation) {
        return fmt::format("'{}'", text);
    }
    std::size_t length = kLongestQuotation;
    while (length > kLongestQuotation - 3 &&
           (static_cast<unsigned char>(text[length]) & 0xc0) == 0x80) {
        --length;  // not through the middle of a UTF-8 character
    }
    return fmt::format("'{}...'", text.substr(0, length));
}

}  // namespace qv::host
