// SPDX-License-Identifier: Apache-2.0

#include "cli/CsvReader.h"

#include <utility>

namespace qv::host {

bool CsvReader::takeLineEnd() {
    const std::size_t length = rest_.substr(0, 2) == "\r\n" ? 2 : 1;
    if (length == 1 && rest_.substr(0, 1) != "\n") {
        return false;
    }
    rest_.remove_prefix(length);
    ++line_;
    return true;
}

std::string CsvReader::takeQuotedField() {
    const std::size_t first = line_;
    std::string field;
    rest_.remove_prefix(1);
    while (true) {
        if (rest_.empty()) {
            throw Error(first, "the quotation that begins here does not end");
        }
        const char c = rest_.front();
        rest_.remove_prefix(1);
        if (c == '"') {
            if (rest_.substr(0, 1) != "\"") {
                return field;
            }
            rest_.remove_prefix(1);
        }
        line_ += c == '\n' ? 1 : 0;
        field += c;
    }
}

std::string CsvReader::takeField() {
    if (rest_.substr(0, 1) == "\"") {
        return takeQuotedField();
    }
    const std::string_view field = rest_.substr(0, rest_.find_first_of(",\"\r\n"));
    rest_.remove_prefix(field.size());
    return std::string(field);
}

bool CsvReader::next(Record& record) {
    while (takeLineEnd()) {
    }
    if (rest_.empty()) {
        return false;
    }
    record.line = line_;
    record.fields.clear();
    for (record.count = 1;; ++record.count) {
        std::string field = takeField();
        if (record.count <= kMostFields) {
            record.fields.push_back(std::move(field));
        }
        if (rest_.empty() || takeLineEnd()) {
            return true;
        }
        if (rest_.front() != ',') {
            throw Error(line_,
                        rest_.front() == '\r' ? "a carriage return stands outside quotation marks"
                        : rest_.front() == '"'
                            ? "a quotation mark stands inside a field that has none around it"
                            : "something follows the quotation mark that ends a field");
        }
        rest_.remove_prefix(1);
    }
}

}  // namespace qv::host
