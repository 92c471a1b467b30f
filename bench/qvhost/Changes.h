// Says which services of a directory a client of a benchmark changes.
#ifndef QV_BENCH_CHANGES_H
#define QV_BENCH_CHANGES_H

#include <string>
#include <vector>

namespace qv::bench {

struct Change {
    int id = 0;
    std::string address;
};

// Returns the changes that a client makes in a directory with the services 0 to `services` - 1, in
// turn and repeatedly. Each gives another address, of the same length, to a service that no other
// client changes. Two changes in a row leave the directory as it was. Clients start far apart in
// the directory, so that a server gains nothing from changes that lie side by side. There are at
// least kMostClients services.
std::vector<Change> changesOf(int client, int services);

}  // namespace qv::bench

#endif  // QV_BENCH_CHANGES_H
