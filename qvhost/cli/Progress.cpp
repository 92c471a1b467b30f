// SPDX-License-Identifier: Apache-2.0

#include "cli/Progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "cli/Listing.h"

namespace qv::host {

Progress::Progress(std::size_t total) : total_(total), isSeen_(isTerminal(STDERR_FILENO)) {}

Progress::~Progress() {
    if (isBegun_) {
        static_cast<void>(std::fputc('\n', stderr));
    }
}

void Progress::show(std::size_t done) {
    if (!isSeen_) {
        return;
    }
    constexpr std::size_t kWidth = 40;
    const std::size_t filled = total_ == 0 ? kWidth : done * kWidth / total_;
    const std::string line =
        fmt::format("\r[{:<{}}] {}/{}", std::string(filled, '#'), kWidth, done, total_);
    // If this fails, nobody can be told.
    static_cast<void>(std::fputs(line.c_str(), stderr));
    static_cast<void>(std::fflush(stderr));
    isBegun_ = true;
}

}  // namespace qv::host
