// SPDX-License-Identifier: Apache-2.0

// Reads CSV by RFC 4180. Lines may also end with LF. Blank lines mean nothing.
//
//     CsvReader reader(text);
//     CsvReader::Record record;
//     while (reader.next(record)) {
//         ... record.fields ...
//     }
#ifndef QVHOST_CLI_CSV_READER_H
#define QVHOST_CLI_CSV_READER_H

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace qv::host {

class CsvReader {
  public:
    // A record keeps as many fields, one more than a service has. A file of nothing but commas
    // must not fill the memory.
    static constexpr std::size_t kMostFields = 3;

    struct Record {
        std::size_t line = 0;  // the line where the record begins, from 1
        std::vector<std::string> fields;
        std::size_t count = 0;  // of all fields, those that are not kept included
    };

    // Names the line where the text stops being CSV. Do not use the reader afterwards.
    class Error : public std::runtime_error {
      public:
        Error(std::size_t line, const std::string& text) : std::runtime_error(text), line_(line) {}

        std::size_t line() const { return line_; }

      private:
        std::size_t line_;
    };

    // The text must outlive the reader.
    explicit CsvReader(std::string_view text) : rest_(text) {}

    // Stores the next record. Returns false at the end. Throws Error.
    bool next(Record& record);

  private:
    bool takeLineEnd();
    std::string takeField();
    std::string takeQuotedField();

    std::string_view rest_;
    std::size_t line_ = 1;
};

}  // namespace qv::host

#endif  // QVHOST_CLI_CSV_READER_H
