// SPDX-License-Identifier: Apache-2.0

// Runs an action that might crash, on a small stack or in a process of its own.
#ifndef QV_TESTS_CONFINED_H
#define QV_TESTS_CONFINED_H

#include <functional>

namespace qv::tests {

// Runs the action on a thread with a stack of 512 KiB, a sixteenth of that of the main thread.
// Under the sanitizers, which make every frame larger, the stack is eight times as large.
void onSmallStack(const std::function<void()>& action);

// Runs the action on a small stack in a child process, which may take 256 MiB more memory than this
// one has, and two minutes of processor time. A failure in the child, or its end by a signal, is a
// failure of the calling test. Under the sanitizers the memory has no limit.
void confined(const std::function<void()>& action);

}  // namespace qv::tests

#endif  // QV_TESTS_CONFINED_H
