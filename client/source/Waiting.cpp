// SPDX-License-Identifier: Apache-2.0

#include "Waiting.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "Feed.h"

namespace qv::client {

namespace {

using Addresses = std::map<int32_t, std::string>;

void apply(Event& event, Addresses& addresses) {
    if (event.kind == Event::Kind::Snapshot) {
        addresses.clear();
    }
    for (std::vector<Service>* services : {&event.registered, &event.changed}) {
        for (Service& service : *services) {
            addresses[service.id] = std::move(service.address);
        }
    }
    for (const int32_t id : event.withdrawn) {
        addresses.erase(id);
    }
}

// Returns the error for a time that has passed. `reason` tells why the host is away, if it is.
Error tooLate(const std::set<int32_t>& wanted, const Addresses& addresses,
              const std::string& reason) {
    const auto first = std::find_if(wanted.begin(), wanted.end(),
                                    [&](int32_t id) { return addresses.count(id) == 0; });
    const std::size_t missing = wanted.size() - addresses.size();
    std::string text = missing == 1 ? "service " + std::to_string(*first) + " was"
                                    : std::to_string(missing) + " services, the first is " +
                                          std::to_string(*first) + ", were";
    text += " not registered in time";
    return {Error::Kind::TimedOut, 0, reason.empty() ? text : text + "; " + reason};
}

}  // namespace

std::vector<Service> waitForServices(const ClientOptions& options, const std::vector<int32_t>& ids,
                                     const Deadline& deadline) {
    const std::set<int32_t> wanted(ids.begin(), ids.end());
    Feed feed(options, ids);
    Addresses addresses;
    std::string reason;
    while (addresses.size() < wanted.size()) {
        std::optional<Event> event = feed.next(deadline);
        if (!event) {
            throw tooLate(wanted, addresses, reason);
        }
        reason = std::move(event->reason);
        apply(*event, addresses);
    }
    std::vector<Service> services;
    for (auto& [id, address] : addresses) {
        services.push_back({id, std::move(address)});
    }
    return services;
}

}  // namespace qv::client
