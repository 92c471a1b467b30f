// SPDX-License-Identifier: Apache-2.0

// Writes JSON as the one line that a subcommand prints with --json.
#ifndef QVHOST_CLI_JSON_LINE_H
#define QVHOST_CLI_JSON_LINE_H

#include <nlohmann/json.hpp>
#include <string>

namespace qv::host {

// Returns the JSON in ASCII, so that it is safe on a terminal, with a newline. U+FFFD replaces
// bytes that are not UTF-8.
inline std::string jsonLine(const nlohmann::ordered_json& json) {
    constexpr int kNoIndent = -1;
    constexpr bool kAsciiOnly = true;
    return json.dump(kNoIndent, ' ', kAsciiOnly, nlohmann::ordered_json::error_handler_t::replace) +
           '\n';
}

}  // namespace qv::host

#endif  // QVHOST_CLI_JSON_LINE_H
