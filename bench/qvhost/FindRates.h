// SPDX-License-Identifier: Apache-2.0

// Compares how many services a second the resident host and Redis find, and how many answers as
// long as the host's the bare sockets send.
#ifndef QV_BENCH_FIND_RATES_H
#define QV_BENCH_FIND_RATES_H

#include <chrono>

namespace qv::bench {

// Prints a table of the finds a second of one service in a large directory, by one client and by
// many. The servers take turns of `slice` each, `rounds` times. Leaves Redis out if it does not
// run. Throws std::exception.
void printFindRates(int rounds, std::chrono::steady_clock::duration slice);

}  // namespace qv::bench

#endif  // QV_BENCH_FIND_RATES_H
