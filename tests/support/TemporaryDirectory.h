// SPDX-License-Identifier: Apache-2.0

// Makes a directory for a test, and removes it with its contents when the object ends.
#ifndef QV_TESTS_TEMPORARY_DIRECTORY_H
#define QV_TESTS_TEMPORARY_DIRECTORY_H

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace qv::tests {

class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "qv-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), pattern);
        }
        path_ = pattern;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    TemporaryDirectory(TemporaryDirectory&&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory&&) = delete;

    const std::string& path() const { return path_; }

    // Returns the path of a file or directory in it, which need not exist.
    std::string path(const std::string& name) const { return path_ + '/' + name; }

  private:
    std::string path_;
};

}  // namespace qv::tests

#endif  // QV_TESTS_TEMPORARY_DIRECTORY_H
