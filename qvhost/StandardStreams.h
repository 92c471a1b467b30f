// Standard output and error, treated as files that can fail.
#ifndef QVHOST_STANDARD_STREAMS_H
#define QVHOST_STANDARD_STREAMS_H

#include <cstdio>
#include <string_view>

namespace qv::host {

// Call first in main(). A closed descriptor 0, 1 or 2 would be given to the next file opened, and a
// listing would be written into the plug-in's log; this keeps the three occupied, so that using a
// closed one fails. A pipe that nobody reads, and a file at its limit of size, give an error
// instead of a signal.
void guardStandardStreams();

// Writes the whole text and flushes it. Throws std::system_error when it cannot.
void writeOutput(std::FILE* out, std::string_view text);

// Writes "qvhost: ", the message with its control characters escaped, and a newline to standard
// error. There is nobody to tell when that fails.
void reportError(std::string_view message) noexcept;

}  // namespace qv::host

#endif  // QVHOST_STANDARD_STREAMS_H
