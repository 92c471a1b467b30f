// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/Directories.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace qv::system {

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::vector<std::string> makeDirectories(const std::string& path, mode_t mode) {
    std::vector<std::string> made;
    for (std::size_t end = 0; end < path.size();) {
        end = std::min(path.find('/', end + 1), path.size());
        std::string directory = path.substr(0, end);
        struct stat status = {};
        if (::stat(directory.c_str(), &status) == 0) {
            continue;
        }
        made.push_back(std::move(directory));
        if (::mkdir(made.back().c_str(), mode) == 0) {
            continue;
        }
        // Another process may have made the directory meanwhile.
        const int error = errno;
        const std::string failed = std::move(made.back());
        made.pop_back();
        if (error != EEXIST) {
            std::for_each(made.rbegin(), made.rend(),
                          [](const std::string& each) { ::rmdir(each.c_str()); });
            throw std::system_error(error, std::generic_category(),
                                    "cannot make the directory " + failed);
        }
    }
    return made;
}

}  // namespace qv::system
