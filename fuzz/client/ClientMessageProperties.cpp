// SPDX-License-Identifier: Apache-2.0

#include "client/ClientMessageProperties.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Events.h"
#include "Messages.h"
#include "QvHost.pb.h"
#include "support/Input.h"
#include "support/Require.h"

namespace qv::fuzz {

namespace {

using client::Event;
using client::Service;

bool areSame(const std::vector<Service>& first, const std::vector<Service>& second) {
    return std::equal(first.begin(), first.end(), second.begin(), second.end(),
                      [](const Service& one, const Service& other) {
                          return one.id == other.id && one.address == other.address;
                      });
}

// Adds the services and their identifiers. Requires that each identifier comes once.
void add(const std::vector<Service>& services,
         google::protobuf::RepeatedPtrField<host::wire::HostService>* messages,
         std::set<int32_t>& ids) {
    for (const Service& service : services) {
        host::wire::HostService* const message = messages->Add();
        message->set_id(service.id);
        message->set_address(service.address);
        require(ids.insert(service.id).second, "an event holds a service twice");
    }
}

void checkEvent(const std::string& bytes) {
    const std::optional<client::ReceivedEvent> received = client::eventOf(bytes);
    if (!received) {
        return;
    }
    const Event& event = received->event;
    host::wire::HostEvent message;
    message.set_is_snapshot(event.kind == Event::Kind::Snapshot);
    message.set_epoch(received->position.epoch);
    message.set_revision(received->position.revision);
    std::set<int32_t> ids;
    add(event.registered, message.mutable_registered(), ids);
    add(event.changed, message.mutable_changed(), ids);
    for (const int32_t id : event.withdrawn) {
        message.add_withdrawn(id);
        require(ids.insert(id).second, "an event withdraws a service twice");
    }
    require(event.kind != Event::Kind::Disconnected, "a host says that it is away");
    require(
        event.kind != Event::Kind::Snapshot || (event.changed.empty() && event.withdrawn.empty()),
        "a snapshot changes services");
    require(event.revision == received->position.revision, "an event has two revisions");

    const std::optional<client::ReceivedEvent> again = client::eventOf(message.SerializeAsString());
    require(again.has_value(), "an event is not read again");
    require(again->event.kind == event.kind && again->event.revision == event.revision &&
                again->position.epoch == received->position.epoch &&
                areSame(again->event.registered, event.registered) &&
                areSame(again->event.changed, event.changed) &&
                again->event.withdrawn == event.withdrawn,
            "an event is read again as another one");
}

void checkServices(const std::string& bytes) {
    const std::optional<std::vector<Service>> services = client::servicesOf(bytes);
    if (!services) {
        return;
    }
    const std::optional<std::vector<Service>> again =
        client::servicesOf(client::messageOfServices(*services));
    require(again.has_value() && areSame(*again, *services),
            "a list of services is read again as another one");
}

void checkHello(const std::string& bytes) {
    const std::optional<client::HostAbilities> abilities = client::abilitiesOf(bytes);
    if (!abilities) {
        return;
    }
    host::wire::HostHello hello;
    hello.set_edition(abilities->edition);
    hello.set_version(abilities->version);
    for (const uint32_t command : abilities->commands) {
        hello.add_commands(command);
    }
    const std::optional<client::HostAbilities> again =
        client::abilitiesOf(hello.SerializeAsString());
    require(again.has_value() && again->edition == abilities->edition &&
                again->version == abilities->version && again->commands == abilities->commands,
            "a hello is read again as another one");
}

}  // namespace

void checkClientMessages(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const auto type = static_cast<HostMessage>(input.byte());
    const std::string bytes = input.rest();
    switch (type) {
        case HostMessage::Services:
            checkServices(bytes);
            break;
        case HostMessage::Hello:
            checkHello(bytes);
            break;
        case HostMessage::Status:
            client::statusOf(bytes);
            break;
        default:
            checkEvent(bytes);
    }
}

}  // namespace qv::fuzz
