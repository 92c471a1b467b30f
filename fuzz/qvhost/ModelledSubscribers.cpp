// SPDX-License-Identifier: Apache-2.0

#include "qvhost/ModelledSubscribers.h"

#include <QvHost.pb.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "qvhost/Possibilities.h"
#include "server/History.h"

namespace qv::fuzz {
namespace {

// Makes the changes that an event tells of.
void apply(const host::Event& event, Services& services) {
    host::wire::HostEvent message;
    check(message.ParseFromArray(event.bytes().data(), static_cast<int>(event.bytes().size())),
          "an event does not parse");
    for (const host::wire::HostService& service : message.registered()) {
        check(services.emplace(service.id(), service.address()).second,
              "a service that is there is registered");
    }
    for (const host::wire::HostService& service : message.changed()) {
        const auto found = services.find(service.id());
        check(found != services.end() && found->second != service.address(),
              "a service that is not there is changed");
        found->second = service.address();
    }
    for (const std::int32_t id : message.withdrawn()) {
        check(services.erase(id) == 1, "a service that is not there is withdrawn");
    }
    check(message.revision() == event.revision(), "an event has another revision");
}

}  // namespace

void ModelledSubscribers::follow(Client& client, const host::Recorder& recorder) {
    const host::History& history = recorder.history();
    const host::SnapshotPointer now = recorder.state()->snapshot;
    Services directory;
    now->forEach([&directory](const host::ServiceView& service) {
        directory[service.id] = service.address;
    });
    const std::optional<std::int64_t> known =
        client.last ? history.positionOf(*client.last) : std::nullopt;
    std::int64_t position = known.value_or(-1);
    std::array<host::EventPointer, 3> events;
    while (position != now->revision()) {
        const std::optional<std::size_t> count =
            history.after(position, events.data(), events.size());
        if (!count) {
            // The client starts over.
            client.services = directory;
            position = now->revision();
            continue;
        }
        check(*count != 0, "there is no event for a revision");
        for (std::size_t i = 0; i < *count; ++i) {
            check(events[i]->revision() == position + 1, "an event is missing");
            apply(*events[i], client.services);
            position = events[i]->revision();
        }
    }
    client.last = {history.epoch(), now->revision()};
    check(client.services == directory, "a subscriber knows another directory");
}

void ModelledSubscribers::comeBack(const host::Recorder& recorder) {
    constexpr std::size_t kMost = 8;
    for (const Client& client : clients_) {
        Client copy = client;
        follow(copy, recorder);
    }
    Client newest = clients_.back();
    follow(newest, recorder);
    clients_.push_back(std::move(newest));
    if (clients_.size() > kMost) {
        clients_.pop_front();
    }
}

}  // namespace qv::fuzz
