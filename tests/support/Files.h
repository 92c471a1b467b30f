// SPDX-License-Identifier: Apache-2.0

// Reads, writes and replaces files, and finds open descriptors, for tests.
#ifndef QV_TESTS_FILES_H
#define QV_TESTS_FILES_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace qv::tests {

// Returns the content of the file, or nothing if there is no file that can be read.
inline std::optional<std::string> contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::error_code ignored;
    if (!file || std::filesystem::is_directory(path, ignored)) {
        return std::nullopt;
    }
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

// Overwrites the file in place, or makes a new one.
inline void writeFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content << std::flush;
    if (!file) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

// Puts a new file in place of the existing one.
inline void replaceFile(const std::string& path, const std::string& content) {
    writeFile(path + ".new", content);
    std::filesystem::rename(path + ".new", path);
}

inline struct stat statusOf(const std::string& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return status;
}

inline ino_t inodeOf(const std::string& path) {
    return statusOf(path).st_ino;
}

// Returns the descriptors of this process whose file is or was below the directory.
inline std::vector<int> descriptorsBelow(const std::string& directory) {
    std::vector<int> descriptors;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string target = std::filesystem::read_symlink(entry.path(), ignored).string();
        if (target.compare(0, directory.size() + 1, directory + "/") == 0) {
            descriptors.push_back(std::atoi(entry.path().filename().c_str()));
        }
    }
    return descriptors;
}

}  // namespace qv::tests

#endif  // QV_TESTS_FILES_H
