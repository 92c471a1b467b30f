// SPDX-License-Identifier: Apache-2.0

// Limits the length of files, so that a write stops there, as on a full disk.
#ifndef QV_TESTS_LONGEST_FILE_H
#define QV_TESTS_LONGEST_FILE_H

#include <sys/resource.h>

#include <csignal>
#include <cstddef>

namespace qv::tests {

// Limits the length of the process's files while the object lives.
class LongestFile {
  public:
    explicit LongestFile(std::size_t length) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        previous_ = limit.rlim_cur;
        set(length);
    }
    ~LongestFile() {
        set(previous_);
        std::signal(SIGXFSZ, handler_);
    }
    LongestFile(const LongestFile&) = delete;
    LongestFile& operator=(const LongestFile&) = delete;
    LongestFile(LongestFile&&) = delete;
    LongestFile& operator=(LongestFile&&) = delete;

  private:
    static void set(rlim_t length) {
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = length;
        setrlimit(RLIMIT_FSIZE, &limit);
    }

    void (*handler_)(int);
    rlim_t previous_ = RLIM_INFINITY;
};

}  // namespace qv::tests

#endif  // QV_TESTS_LONGEST_FILE_H
