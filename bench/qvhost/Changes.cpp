#include "Changes.h"

#include "Subject.h"
#include "support/Services.h"

namespace qv::bench {

namespace {

std::string otherAddressOf(int id) {
    return "unix:/var/run/lorx/replica-" + std::to_string(id) + ".sock";
}

}  // namespace

std::vector<Change> changesOf(int client, int services) {
    const int own = (services - client + kMostClients - 1) / kMostClients;
    const int first = client * own / kMostClients;
    std::vector<Change> changes;
    for (int i = 0; i < own; ++i) {
        const int id = client + (first + i) % own * kMostClients;
        changes.push_back({id, otherAddressOf(id)});
        changes.push_back({id, addressOf(id)});
    }
    return changes;
}

}  // namespace qv::bench
