// SPDX-License-Identifier: Apache-2.0

// Shows how long a client waits for the resident host while others change the directory.
#ifndef QV_BENCH_LATENCIES_H
#define QV_BENCH_LATENCIES_H

#include <chrono>

namespace qv::bench {

// Lets many clients change a large directory on a disk for this long. Prints a table of the time
// that an extra client waits for a listing and for a ping meanwhile. Beside it are the times of the
// bare sockets, which the extra client asks in turn with the host. Throws std::exception.
void printLatencies(std::chrono::steady_clock::duration time);

}  // namespace qv::bench

#endif  // QV_BENCH_LATENCIES_H
