// How far a long work has come, on standard error where that is a terminal.
#ifndef QVHOST_CLI_PROGRESS_H
#define QVHOST_CLI_PROGRESS_H

#include <cstddef>

namespace qv::host {

class Progress {
  public:
    explicit Progress(std::size_t total);

    // Ends the line, so that what follows has one of its own.
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
