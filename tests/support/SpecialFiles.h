// SPDX-License-Identifier: Apache-2.0

// Makes pipes and sockets, which tests put in place of files.
#ifndef QV_TESTS_SPECIAL_FILES_H
#define QV_TESTS_SPECIAL_FILES_H

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace qv::tests {

inline void makePipe(const std::string& path) {
    if (::mkfifo(path.c_str(), 0600) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

// Makes a socket on which no process listens.
inline void makeSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool isMade =
        ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    const int error = errno;
    ::close(descriptor);
    if (!isMade) {
        throw std::system_error(error, std::generic_category(), path);
    }
}

}  // namespace qv::tests

#endif  // QV_TESTS_SPECIAL_FILES_H
