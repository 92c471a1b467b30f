// SPDX-License-Identifier: Apache-2.0

// Reads the numbers that people write in files and on the command line. A number is decimal, or
// hexadecimal from 0x0 to 0x7fffffff.
#ifndef QVHOST_CLI_NUMBERS_H
#define QVHOST_CLI_NUMBERS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qv::host {

// Returns the number. Throws InputError if the text is not a 32-bit number.
int32_t parseIdentifier(std::string_view text);

// Returns the numbers of one call. Throws InputError also if a number occurs twice, which is
// probably a mistake.
std::vector<int32_t> parseIdentifiers(const std::vector<std::string>& texts);

// Returns the debug level. Throws InputError if the text is not a number from 0 to 7.
int32_t parseLevel(std::string_view text);

}  // namespace qv::host

#endif  // QVHOST_CLI_NUMBERS_H
