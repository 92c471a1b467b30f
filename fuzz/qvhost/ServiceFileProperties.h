// SPDX-License-Identifier: Apache-2.0

// Checks what must hold for every file of services, however damaged. The fuzz target looks for
// bytes that break it. The tests check the files that are known.
#ifndef QV_FUZZ_SERVICE_FILE_PROPERTIES_H
#define QV_FUZZ_SERVICE_FILE_PROPERTIES_H

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {

// Reads the bytes as each format, and as the format that they look like. Aborts and says why if one
// of these does not hold:
//
// - Another reader finds the same services, or as many mistakes. In CSV the mistakes are in the
// same
//   lines.
// - Each mistake is one short line. It begins with the file and the line, and shows no control
//   character.
// - Blank lines before JSON change only the lines of the mistakes.
// - The services that were read can be written in either format and read back. So can an address
// that
//   has these bytes, if they are UTF-8.
void checkServiceFileProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_SERVICE_FILE_PROPERTIES_H
