// SPDX-License-Identifier: Apache-2.0

#include "cli/Times.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "cli/Quotation.h"

namespace qv::host {

namespace {

constexpr double kLongest = 1e6;  // seconds

}  // namespace

ValueCheck isTime(double shortest) {
    return [shortest](const std::string& value) {
        char* end = nullptr;
        const double seconds = std::strtod(value.c_str(), &end);
        const bool good =
            !value.empty() && *end == '\0' && seconds >= shortest && seconds <= kLongest;
        return good ? std::string()
                    : fmt::format("a number of seconds from {} to {:.0f} is needed, not {}",
                                  shortest, kLongest, quotation(value));
    };
}

std::chrono::milliseconds milliseconds(const std::string& seconds) {
    return std::chrono::milliseconds(
        static_cast<int64_t>(std::ceil(std::strtod(seconds.c_str(), nullptr) * 1000)));
}

}  // namespace qv::host
