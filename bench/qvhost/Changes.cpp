// SPDX-License-Identifier: Apache-2.0

#include "Changes.h"

#include <cstddef>

#include "Subject.h"
#include "support/Services.h"

namespace qv::bench {

namespace {

std::string otherAddressOf(int id) {
    return "unix:/var/run/lorx/replica-" + std::to_string(id) + ".sock";
}

}  // namespace

std::vector<int> ownServices(int client, int services) {
    const int own = (services - client + kMostClients - 1) / kMostClients;
    const int first = client * own / kMostClients;
    std::vector<int> ids;
    ids.reserve(static_cast<std::size_t>(own));
    for (int i = 0; i < own; ++i) {
        ids.push_back(client + (first + i) % own * kMostClients);
    }
    return ids;
}

std::vector<Change> changesOf(int client, int services) {
    std::vector<Change> changes;
    for (const int id : ownServices(client, services)) {
        changes.push_back({id, otherAddressOf(id)});
        changes.push_back({id, addressOf(id)});
    }
    return changes;
}

}  // namespace qv::bench
