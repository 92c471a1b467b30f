// The numbers that people write, in scripts, in files and on the command line: decimal, or
// hexadecimal from 0x0 to 0x7fffffff.
#ifndef QVHOST_NUMBERS_H
#define QVHOST_NUMBERS_H

#include <cstdint>
#include <string_view>

namespace qv::host {

// Throws ScriptError for what is no 32-bit number.
int32_t parseIdentifier(std::string_view text);

// The same; which levels there are, the plug-in decides.
int32_t parseLevel(std::string_view text);

}  // namespace qv::host

#endif  // QVHOST_NUMBERS_H
