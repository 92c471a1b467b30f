// SPDX-License-Identifier: Apache-2.0

// Makes the events with which a ScriptedServer serves subscriptions:
//
//     ScriptedServer server({sending({snapshot(5, {{1, "a"}}), withdrawal(6, {1})})});
#ifndef QV_TESTS_HOST_EVENTS_H
#define QV_TESTS_HOST_EVENTS_H

#include <QvClient.h>
#include <QvPlugin.h>

#include <cstdint>
#include <string>
#include <vector>

#include "QvHost.pb.h"
#include "client/ScriptedServer.h"

namespace qv::tests {

constexpr uint64_t kEpoch = 77;

using WireEvent = host::wire::HostEvent;

inline void addService(google::protobuf::RepeatedPtrField<host::wire::HostService>* services,
                       const client::Service& service) {
    host::wire::HostService* const added = services->Add();
    added->set_id(service.id);
    added->set_address(service.address);
}

// Returns an event without services.
inline WireEvent eventAt(int64_t revision) {
    WireEvent event;
    event.set_epoch(kEpoch);
    event.set_revision(revision);
    return event;
}

inline WireEvent registration(int64_t revision, const std::vector<client::Service>& services) {
    WireEvent event = eventAt(revision);
    for (const client::Service& service : services) {
        addService(event.mutable_registered(), service);
    }
    return event;
}

inline WireEvent snapshot(int64_t revision, const std::vector<client::Service>& services) {
    WireEvent event = registration(revision, services);
    event.set_is_snapshot(true);
    return event;
}

inline WireEvent move(int64_t revision, const client::Service& service) {
    WireEvent event = eventAt(revision);
    addService(event.mutable_changed(), service);
    return event;
}

inline WireEvent withdrawal(int64_t revision, const std::vector<int32_t>& ids) {
    WireEvent event = eventAt(revision);
    for (const int32_t id : ids) {
        event.add_withdrawn(id);
    }
    return event;
}

inline void sendEvent(const Peer& peer, const WireEvent& event, uint32_t number) {
    peer.answer(QV_OK, event.SerializeAsString(), number);
}

// Takes a connection from a client that sends no request.
inline void idle(Peer& peer) {
    peer.waitForEnd();
}

// Returns a function that answers a subscription with the events, and closes.
inline ScriptedServer::Script sendingOnly(const std::vector<WireEvent>& events) {
    return [=](Peer& peer) {
        const uint32_t number = peer.receive().number;
        for (const WireEvent& event : events) {
            sendEvent(peer, event, number);
        }
    };
}

// Returns a function that answers a subscription with the events, and waits until the client
// closes.
inline ScriptedServer::Script sending(const std::vector<WireEvent>& events) {
    return [=](Peer& peer) {
        sendingOnly(events)(peer);
        peer.waitForEnd();
    };
}

}  // namespace qv::tests

#endif  // QV_TESTS_HOST_EVENTS_H
