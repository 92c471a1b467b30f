// SPDX-License-Identifier: Apache-2.0

// Shows how soon a component that waits for a service has the service's address.
#ifndef QV_BENCH_WAIT_TIMES_H
#define QV_BENCH_WAIT_TIMES_H

namespace qv::bench {

// Registers services in a large directory on a disk, as many for each way of waiting. Prints a
// table of the time from the answer to a registration until a waiting client has the address.
// Throws std::exception.
void printWaitTimes(int services);

}  // namespace qv::bench

#endif  // QV_BENCH_WAIT_TIMES_H
