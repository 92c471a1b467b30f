// SPDX-License-Identifier: Apache-2.0

// Shows on standard error how far a long task has come, if standard error is a terminal.
#ifndef QVHOST_CLI_PROGRESS_H
#define QVHOST_CLI_PROGRESS_H

#include <cstddef>

namespace qv::host {

class Progress {
  public:
    explicit Progress(std::size_t total);

    // Ends the line, so that later output begins on a new one.
    ~Progress();

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(std::size_t done);

  private:
    std::size_t total_;
    bool isSeen_;
    bool isBegun_ = false;
};

}  // namespace qv::host

#endif  // QVHOST_CLI_PROGRESS_H
