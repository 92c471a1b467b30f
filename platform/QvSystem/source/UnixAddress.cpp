// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/UnixAddress.h"

#include <system_error>

namespace qv::system {

sockaddr_un unixAddress(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::system_error(std::make_error_code(std::errc::filename_too_long), path);
    }
    // The system takes an empty path, and one that begins with a NUL, for other kinds of addresses.
    if (path.empty() || path.find('\0') != std::string::npos) {
        throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory), path);
    }
    path.copy(address.sun_path, path.size());
    return address;
}

}  // namespace qv::system
