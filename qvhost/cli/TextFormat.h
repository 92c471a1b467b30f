// The option --format of the commands that read and write lists of services.
#ifndef QVHOST_CLI_TEXT_FORMAT_H
#define QVHOST_CLI_TEXT_FORMAT_H

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "cli/Output.h"

namespace qv::host {

// `name` is given "csv" or "json", or stays empty.
inline void addFormatOption(CLI::App& command, std::string& name, const std::string& otherwise) {
    command.add_option("--format", name, "csv or json; when not given, " + otherwise)
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"csv", "json"}).description(""));
}

inline std::optional<Format> formatNamed(const std::string& name) {
    if (name.empty()) {
        return std::nullopt;
    }
    return name == "json" ? Format::Json : Format::Csv;
}

}  // namespace qv::host

#endif  // QVHOST_CLI_TEXT_FORMAT_H
