// SPDX-License-Identifier: Apache-2.0

// Compares how many changes a second the resident host and Redis keep on the disk.
#ifndef QV_BENCH_CHANGE_RATES_H
#define QV_BENCH_CHANGE_RATES_H

#include <chrono>

namespace qv::bench {

// Prints a table of the changes a second in a small and in a large directory, by one client and by
// many. The servers take turns of `slice` each, `rounds` times, because a disk changes its speed
// from minute to minute. A rate is the median of the rounds. So is a ratio, whose two rates come
// from the same round. Leaves Redis out, and says why on standard error, if Redis does not run.
// Throws std::exception.
void printChangeRates(int rounds, std::chrono::steady_clock::duration slice);

}  // namespace qv::bench

#endif  // QV_BENCH_CHANGE_RATES_H
