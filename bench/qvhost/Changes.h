// SPDX-License-Identifier: Apache-2.0

// Says which services of a directory a client of a benchmark uses, and how it changes them.
#ifndef QV_BENCH_CHANGES_H
#define QV_BENCH_CHANGES_H

#include <string>
#include <vector>

namespace qv::bench {

// Returns the services that only this client uses in a directory with the services 0 to `services`
// -
// 1. Clients start far apart in the directory, so that a server gains nothing from services that
// lie side by side. There are at least kMostClients services.
std::vector<int> ownServices(int client, int services);

struct Change {
    int id = 0;
    std::string address;
};

// Returns the changes that a client makes to its own services, in turn and repeatedly. Each gives
// another address, of the same length, to a service. Two changes in a row leave the directory as it
// was.
std::vector<Change> changesOf(int client, int services);

}  // namespace qv::bench

#endif  // QV_BENCH_CHANGES_H
