// SPDX-License-Identifier: Apache-2.0

// Reads whole files.
#ifndef QV_SYSTEM_FILES_H
#define QV_SYSTEM_FILES_H

#include <cstddef>
#include <string>
#include <system_error>

namespace qv::system {

// Replaces `content` by what can be read from the descriptor up to its end. Returns the system's
// error, or file_too_large if there are more than `longest` bytes. Throws std::bad_alloc.
[[nodiscard]] std::error_code readAll(int descriptor, std::size_t longest, std::string& content);

// Does the same for the regular file at a path, or at the end of a symbolic link. Never waits and
// changes nothing, whatever stands there. Returns invalid_argument for what is no regular file.
[[nodiscard]] std::error_code readRegularFile(const std::string& path, std::size_t longest,
                                              std::string& content);

}  // namespace qv::system

#endif  // QV_SYSTEM_FILES_H
