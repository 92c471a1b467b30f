// SPDX-License-Identifier: Apache-2.0

// Chooses the size of a test for the build that it runs in.
#ifndef QV_TESTS_USUAL_OR_REDUCED_H
#define QV_TESTS_USUAL_OR_REDUCED_H

namespace qv::tests {

// Returns `usual`, or `reduced` in the builds whose code runs many times slower: those with
// sanitizers and the one with coverage counters. Those builds look for races, wrong accesses and
// lines that nothing runs. A reduced size therefore still exceeds each buffer and each limit that
// the test is about.
template <class T>
constexpr T usualOrReduced([[maybe_unused]] T usual, [[maybe_unused]] T reduced) {
#ifdef QV_INSTRUMENTED
    return reduced;
#else
    return usual;
#endif
}

}  // namespace qv::tests

#endif  // QV_TESTS_USUAL_OR_REDUCED_H
