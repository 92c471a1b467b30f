// SPDX-License-Identifier: Apache-2.0

// Reads lists of services a second time, in another way, for comparison. CSV is cut at the line
// ends and commas that have an even number of quotation marks before them. JSON becomes a tree
// first.
#ifndef QV_FUZZ_SERVICE_FILE_LANGUAGE_H
#define QV_FUZZ_SERVICE_FILE_LANGUAGE_H

#include "server/Service.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace qv::fuzz {

struct CsvList {
    std::vector<host::Service> services;
    std::vector<std::size_t> wrongLines;  // one for each mistake
};

struct JsonList {
    std::vector<host::Service> services;
    std::size_t problems = 0;
};

// Reads a text without its byte order mark.
CsvList listOfCsv(std::string_view text);

// Reads a text with its byte order mark. Returns nothing if the text is no list of objects with ids
// and addresses.
std::optional<JsonList> listOfJson(std::string_view text);

bool isWellFormedUtf8(std::string_view text);

// Tells whether a directory can hold the address.
bool isAddress(std::string_view text);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_SERVICE_FILE_LANGUAGE_H
