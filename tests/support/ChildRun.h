// SPDX-License-Identifier: Apache-2.0

// Runs functions in a child process, which begins as a copy of the caller's process with the
// calling thread only. A function affects the caller only through files and the text that it
// returns.
#ifndef QV_TESTS_CHILD_RUN_H
#define QV_TESTS_CHILD_RUN_H

#include <sys/types.h>

#include <functional>
#include <string>

namespace qv::tests {

struct ChildRun {
    // The status from waitpid().
    int status = 0;
    // The text that the function returned, or the text of the exception that it threw. Empty if the
    // child was killed before.
    std::string report;

    bool hasReturned() const;
    bool wasKilled() const;
};

// Waits for the end of a child and returns its status. An exception of the follower kills the
// child.
using Follower = std::function<int(pid_t child)>;

int awaitEnd(pid_t child);

// Runs the function in a child. Throws std::system_error if the system makes no further process.
ChildRun runInChild(const std::function<std::string()>& body, const Follower& follow = awaitEnd);

}  // namespace qv::tests

#endif  // QV_TESTS_CHILD_RUN_H
