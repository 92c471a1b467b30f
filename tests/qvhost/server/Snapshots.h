// SPDX-License-Identifier: Apache-2.0

// Makes snapshots of the directory, and compares them with a map.
#ifndef QV_TESTS_QVHOST_SERVER_SNAPSHOTS_H
#define QV_TESTS_QVHOST_SERVER_SNAPSHOTS_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "server/Snapshot.h"

namespace qv::tests {

// The addresses of services by their identifiers.
using Model = std::map<std::int32_t, std::string>;

inline host::SnapshotPointer snapshotOf(const Model& model, std::int64_t revision) {
    std::vector<host::Service> services;
    services.reserve(model.size());
    for (const auto& [id, address] : model) {
        services.push_back({id, address});
    }
    return std::make_shared<const host::Snapshot>(revision, services);
}

inline Model modelOf(const host::Snapshot& snapshot) {
    Model model;
    snapshot.forEach([&](const host::ServiceView& service) {
        model.emplace_hint(model.end(), service.id, service.address);
    });
    return model;
}

// Returns the answer to a listing.
inline std::string listingOf(const host::Snapshot& snapshot) {
    std::string bytes;
    for (const auto& block : snapshot.blocks()) {
        bytes += block->bytes();
    }
    return bytes;
}

}  // namespace qv::tests

#endif  // QV_TESTS_QVHOST_SERVER_SNAPSHOTS_H
