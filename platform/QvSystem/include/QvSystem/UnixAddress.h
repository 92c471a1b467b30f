// SPDX-License-Identifier: Apache-2.0

// Makes the address of a Unix socket.
#ifndef QV_SYSTEM_UNIX_ADDRESS_H
#define QV_SYSTEM_UNIX_ADDRESS_H

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace qv::system {

// Returns the address of the socket file at a path. Throws std::system_error: filename_too_long if
// the path does not fit, no_such_file_or_directory if it names no file.
sockaddr_un unixAddress(const std::string& path);

inline const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace qv::system

#endif  // QV_SYSTEM_UNIX_ADDRESS_H
