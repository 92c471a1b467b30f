// SPDX-License-Identifier: Apache-2.0

// Makes directories.
#ifndef QV_SYSTEM_DIRECTORIES_H
#define QV_SYSTEM_DIRECTORIES_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace qv::system {

// Returns the directory that a file is in; "." for a name without a slash.
std::string directoryOf(const std::string& path);

// Makes a directory and those above it that are missing, all with this mode less the umask. Returns
// the paths of those it made, the outermost first. Does nothing if the path is empty or something
// stands there. Throws std::system_error, and makes none then.
std::vector<std::string> makeDirectories(const std::string& path, mode_t mode);

}  // namespace qv::system

#endif  // QV_SYSTEM_DIRECTORIES_H
