// SPDX-License-Identifier: Apache-2.0

// Tells in a few words why a step of the host failed, also while memory is short.
#ifndef QVHOST_SERVER_ERROR_TEXT_H
#define QVHOST_SERVER_ERROR_TEXT_H

#include <exception>
#include <new>

namespace qv::host {

// Short enough for a std::string that needs no memory.
inline constexpr char kOutOfMemory[] = "out of memory";

// Returns the text of the exception. The text is valid as long as the exception.
inline const char* textOf(const std::exception& error) {
    return dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? kOutOfMemory : error.what();
}

}  // namespace qv::host

#endif  // QVHOST_SERVER_ERROR_TEXT_H
