// SPDX-License-Identifier: Apache-2.0

// Adds the option --format of the subcommands that read and write lists of services.
#ifndef QVHOST_CLI_TEXT_FORMAT_H
#define QVHOST_CLI_TEXT_FORMAT_H

#include <optional>
#include <string>

#include "cli/OptionValues.h"
#include "cli/Output.h"
#include "cli/Subcommand.h"

namespace qv::host {

// Adds the option, which sets `name` to "csv" or "json". `otherwise` says what holds without it.
inline void addFormatOption(Subcommand& subcommand, std::string& name,
                            const std::string& otherwise) {
    subcommand.option("--format", "FORMAT", name, "csv or json; by default, " + otherwise,
                      isOneOf({"csv", "json"}));
}

inline std::optional<Format> formatNamed(const std::string& name) {
    if (name.empty()) {
        return std::nullopt;
    }
    return name == "json" ? Format::Json : Format::Csv;
}

}  // namespace qv::host

#endif  // QVHOST_CLI_TEXT_FORMAT_H
