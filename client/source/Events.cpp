// SPDX-License-Identifier: Apache-2.0

#include "Events.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "QvHost.pb.h"
#include "Wire.h"

namespace qv::client {

namespace {

using WireServices = google::protobuf::RepeatedPtrField<host::wire::HostService>;

// Moves the services to `services`. Returns false if one has no identifier.
bool takeServices(WireServices& messages, std::vector<Service>& services) {
    services.reserve(static_cast<std::size_t>(messages.size()));
    for (host::wire::HostService& message : messages) {
        if (!message.has_id()) {
            return false;
        }
        services.push_back({message.id(), std::move(*message.mutable_address())});
    }
    return true;
}

bool hasEachServiceOnce(const Event& event) {
    std::vector<int32_t> ids = event.withdrawn;
    for (const std::vector<Service>* services : {&event.registered, &event.changed}) {
        for (const Service& service : *services) {
            ids.push_back(service.id);
        }
    }
    std::sort(ids.begin(), ids.end());
    return std::adjacent_find(ids.begin(), ids.end()) == ids.end();
}

}  // namespace

std::string messageOfSubscription(const std::vector<int32_t>& ids,
                                  const std::optional<Position>& position) {
    host::wire::HostSubscription message;
    for (const int32_t id : ids) {
        message.add_ids(id);
    }
    if (position) {
        message.set_epoch(position->epoch);
        message.set_revision(position->revision);
    }
    return serialised(message);
}

std::optional<ReceivedEvent> eventOf(const std::string& message) {
    host::wire::HostEvent parsed;
    if (!hasFewFields(message, kMostServices) || !parse(parsed, message) || !parsed.has_epoch() ||
        !parsed.has_revision()) {
        return std::nullopt;
    }
    ReceivedEvent received;
    received.position = {parsed.epoch(), parsed.revision()};
    Event& event = received.event;
    event.kind = parsed.is_snapshot() ? Event::Kind::Snapshot : Event::Kind::Change;
    event.revision = parsed.revision();
    event.withdrawn.assign(parsed.withdrawn().begin(), parsed.withdrawn().end());
    if (!takeServices(*parsed.mutable_registered(), event.registered) ||
        !takeServices(*parsed.mutable_changed(), event.changed)) {
        return std::nullopt;
    }
    const bool isAllNew = event.changed.empty() && event.withdrawn.empty();
    if ((parsed.is_snapshot() && !isAllNew) || !hasEachServiceOnce(event)) {
        return std::nullopt;
    }
    return received;
}

}  // namespace qv::client
