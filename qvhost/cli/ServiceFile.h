// SPDX-License-Identifier: Apache-2.0

// Reads lists of services in the formats that formatServices() writes for programs: JSON and CSV.
#ifndef QVHOST_CLI_SERVICE_FILE_H
#define QVHOST_CLI_SERVICE_FILE_H

#include <optional>
#include <string>
#include <vector>

#include "cli/Output.h"
#include "server/Service.h"

namespace qv::host {

struct ReadServices {
    std::vector<Service> services;

    // The first few mistakes, each as "name:line: what". If there are any, ignore the services.
    std::vector<std::string> problems;
};

// Reads a list and checks all of it: every identifier is a number and occurs once, the directory
// can hold every address, and there is nothing else. `name` is the name of the text in the
// problems. Without a format, a text that begins with a bracket or a brace is JSON, and any other
// text is CSV.
ReadServices readServices(const std::string& text, const std::string& name,
                          std::optional<Format> format);

// Each throws std::system_error, also if there is more than a list of services can be long.
std::string readWholeFile(const std::string& path);
std::string readWholeStandardInput();

}  // namespace qv::host

#endif  // QVHOST_CLI_SERVICE_FILE_H
