// SPDX-License-Identifier: Apache-2.0

// Writes to standard output and error as to files that can fail.
#ifndef QVHOST_STANDARD_STREAMS_H
#define QVHOST_STANDARD_STREAMS_H

#include <cstdio>
#include <string_view>
#include <system_error>

namespace qv::host {

// Tells that standard output is a pipe that nobody reads any more.
class OutputClosed : public std::system_error {
  public:
    using std::system_error::system_error;
};

// Prepares the standard streams. Call first in main(). The next file to be opened would take a
// descriptor 0, 1 or 2 that is closed, and a listing would be written into that file. This keeps
// the three occupied, so that using a closed one fails. A pipe that nobody reads, and a file at its
// limit of size, cause an error instead of a signal.
void guardStandardStreams();

// Writes the whole text and flushes it. Throws OutputClosed if nobody reads it, and otherwise
// std::system_error if that fails.
void writeOutput(std::FILE* out, std::string_view text);

// Writes a line to standard error: "qvhost: " and the message with its control characters escaped.
// Ignores a failure, which nobody could be told.
void reportError(std::string_view message) noexcept;

// Does the same for a process that must go on: drops the line if standard error is a pipe or a
// socket that nobody reads.
void writeJournal(std::string_view message) noexcept;

}  // namespace qv::host

#endif  // QVHOST_STANDARD_STREAMS_H
