// The formats of lists of services once more, for comparison: CSV is cut at the line ends and the
// commas that have an even number of quotation marks before them, and JSON becomes a tree first.
#ifndef QV_FUZZ_SERVICE_FILE_LANGUAGE_H
#define QV_FUZZ_SERVICE_FILE_LANGUAGE_H

#include "cli/Service.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace qv::fuzz {

struct CsvList {
    std::vector<host::Service> services;
    std::vector<std::size_t> wrongLines;  // one for each thing that is wrong
};

struct JsonList {
    std::vector<host::Service> services;
    std::size_t problems = 0;
};

// Of a text without its byte order mark.
CsvList listOfCsv(std::string_view text);

// Of a text with it. None where it stops being a list of objects with ids and addresses.
std::optional<JsonList> listOfJson(std::string_view text);

bool isWellFormedUtf8(std::string_view text);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_SERVICE_FILE_LANGUAGE_H
