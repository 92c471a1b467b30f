// SPDX-License-Identifier: Apache-2.0

// Shows what subscribers cost the resident host.
#ifndef QV_BENCH_EVENT_RATES_H
#define QV_BENCH_EVENT_RATES_H

#include <chrono>

namespace qv::bench {

// In both functions, the servers take turns of `slice` each, `rounds` times. They throw
// std::exception.

// Prints a table of the changes a second that many subscribers learn of, beside the messages that
// as many subscribers of Redis receive. Leaves Redis out if it does not run.
void printEventRates(int rounds, std::chrono::steady_clock::duration slice);

// Prints a table of the changes a second that many clients make on a disk, without subscribers and
// with very many.
void printSubscribedChangeRates(int rounds, std::chrono::steady_clock::duration slice);

}  // namespace qv::bench

#endif  // QV_BENCH_EVENT_RATES_H
