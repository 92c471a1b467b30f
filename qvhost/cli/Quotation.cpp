#include "cli/Quotation.h"

#include <fmt/format.h>

namespace qv::host {

namespace {

constexpr std::size_t kLongestQuotation = 40;

}  // namespace

std::string quotation(std::string_view text) {
    return fmt::format("'{}'", shortened(text, kLongestQuotation));
}

std::string shortened(std::string_view text, std::size_t longest) {
    if (text.size() <= longest) {
        return std::string(text);
    }
    std::size_t length = longest;
    while (length > longest - 3 && (static_cast<unsigned char>(text[length]) & 0xc0) == 0x80) {
        --length;
    }
    return fmt::format("{}...", text.substr(0, length));
}

}  // namespace qv::host
