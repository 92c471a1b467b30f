// SPDX-License-Identifier: Apache-2.0

// Reads the permissions of files, and sets the umask of the process while an object lives.
#ifndef QV_TESTS_FILE_MODES_H
#define QV_TESTS_FILE_MODES_H

#include <sys/stat.h>

#include <string>

#include "support/Files.h"

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
    return statusOf(path).st_mode & 07777U;
}

}  // namespace qv::tests

#endif  // QV_TESTS_FILE_MODES_H
