// SPDX-License-Identifier: Apache-2.0

#include "cli/Quotation.h"

#include <QvSystem/Utf8.h>
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
    return fmt::format("{}...", system::wholeCharacters(text.substr(0, longest)));
}

}  // namespace qv::host
