// Permissions of files: what they are, and what the process takes away from them at creation.
#ifndef QV_TESTS_FILE_MODES_H
#define QV_TESTS_FILE_MODES_H

#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace qv::tests {

class UmaskGuard {
  public:
    explicit UmaskGuard(mode_t mask) : previous_(::umask(mask)) {}
    ~UmaskGuard() { ::umask(previous_); }
    UmaskGuard(const UmaskGuard&) = delete;
    UmaskGuard& operator=(const UmaskGuard&) = delete;
    UmaskGuard(UmaskGuard&&) = delete;
    UmaskGuard& operator=(UmaskGuard&&) = delete;

  private:
    mode_t previous_;
};

inline unsigned modeOf(const std::string& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return status.st_mode & 07777U;
}

}  // namespace qv::tests

#endif  // QV_TESTS_FILE_MODES_H
