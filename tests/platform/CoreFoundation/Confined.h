// Places to do what might take the program down.
#ifndef QV_TESTS_CONFINED_H
#define QV_TESTS_CONFINED_H

#include <functional>

namespace qv::tests {

// On a thread with a stack of 512 KiB, a sixteenth of what the main thread has; eight times as much
// under the sanitizers, which make every frame larger.
void onSmallStack(const std::function<void()>& action);

// The same in a process of its own, which may take 256 MiB more of memory than this one has, and
// two minutes of the processor. A failure there is one here, and so is its end by a signal. Under
// the sanitizers, which take memory as they like, the memory has no limit.
void confined(const std::function<void()>& action);

}  // namespace qv::tests

#endif  // QV_TESTS_CONFINED_H
