// Reads lists of services as programs write them, in the formats of formatServices(): JSON and CSV.
#ifndef QVHOST_CLI_SERVICE_FILE_H
#define QVHOST_CLI_SERVICE_FILE_H

#include <optional>
#include <string>
#include <vector>

#include "cli/Output.h"
#include "cli/Service.h"

namespace qv::host {

struct ReadServices {
    std::vector<Service> services;

    // What is wrong, the first few things, each as "name:line: what"; the services are then of no
    // use.
    std::vector<std::string> problems;
};

// Checks all of the text: every identifier is a number and there once, every address is UTF-8, and
// there is nothing else. `name` is what the problems call the text. Without a format, a text that
// begins with a bracket or a brace is JSON, and any other is CSV.
ReadServices readServices(const std::string& text, const std::string& name,
                          std::optional<Format> format);

// Throws std::system_error, and std::runtime_error for a file too large to be a list of services.
std::string readWholeFile(const std::string& path);
std::string readWholeStandardInput();

}  // namespace qv::host

#endif  // QVHOST_CLI_SERVICE_FILE_H
