// Functions run in a process of their own, which begins as a copy of the caller's. What one does
// stays there, but for files and the text that it returns.
//
// A child has the thread that called, and no other.
#ifndef QV_TESTS_CHILD_RUN_H
#define QV_TESTS_CHILD_RUN_H

#include <sys/types.h>

#include <functional>
#include <string>

namespace qv::tests {

struct ChildRun {
    // As waitpid() has it.
    int status = 0;
    // What the function returned, or the text of the exception that it threw; empty where it did
    // not come to that.
    std::string report;

    bool hasReturned() const;
    bool wasKilled() const;
};

// Sees a child to its end and returns its status. An exception kills the child and passes.
using Follower = std::function<int(pid_t child)>;

int awaitEnd(pid_t child);

// Throws std::system_error where there can be no further process.
ChildRun runInChild(const std::function<std::string()>& body, const Follower& follow = awaitEnd);

}  // namespace qv::tests

#endif  // QV_TESTS_CHILD_RUN_H
