// SPDX-License-Identifier: Apache-2.0

#include "cli/OptionValues.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

#include "cli/Quotation.h"

namespace qv::host {

ValueCheck isAnything() {
    return [](const std::string& /*value*/) { return std::string(); };
}

ValueCheck notEmpty() {
    return [](const std::string& value) {
        return value.empty() ? std::string("the name is empty") : std::string();
    };
}

ValueCheck isWholeNumber(uint64_t least, uint64_t most) {
    return [least, most](const std::string& value) {
        const char* const end = value.data() + value.size();
        uint64_t number = 0;
        const std::from_chars_result result = std::from_chars(value.data(), end, number);
        const bool good =
            result.ec == std::errc() && result.ptr == end && number >= least && number <= most;
        return good ? std::string()
                    : fmt::format("a number from {} to {} is needed, not {}", least, most,
                                  quotation(value));
    };
}

ValueCheck isOneOf(std::vector<std::string> words) {
    return [words = std::move(words)](const std::string& value) {
        const bool good = std::find(words.begin(), words.end(), value) != words.end();
        return good ? std::string()
                    : fmt::format("{} is needed, not {}", fmt::join(words, " or "),
                                  quotation(value));
    };
}

}  // namespace qv::host
