// SPDX-License-Identifier: Apache-2.0

// Defines the functions of qv_client.h for subscriptions.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CHandles.h"
#include "CResults.h"
#include "QvClient.h"
#include "qv_client.h"

namespace client = qv::client;

namespace {

int kindOf(client::Event::Kind kind) {
    switch (kind) {
        case client::Event::Kind::Snapshot:
            return QV_EVENT_SNAPSHOT;
        case client::Event::Kind::Change:
            return QV_EVENT_CHANGE;
        case client::Event::Kind::Disconnected:
            break;
    }
    return QV_EVENT_DISCONNECTED;
}

// The event that the caller sees, and what it shows.
struct OwnedEvent : qv_event {
    explicit OwnedEvent(client::Event event)
        : qv_event(),
          ownedRegistered(std::move(event.registered)),
          ownedChanged(std::move(event.changed)),
          ownedWithdrawn(std::move(event.withdrawn)),
          ownedReason(std::move(event.reason)) {
        kind = kindOf(event.kind);
        revision = event.revision;
        registered = ownedRegistered.list();
        changed = ownedChanged.list();
        withdrawn = ownedWithdrawn.data();
        withdrawn_count = ownedWithdrawn.size();
        reason = ownedReason.c_str();
    }

    client::ServicesForC ownedRegistered;
    client::ServicesForC ownedChanged;
    std::vector<int32_t> ownedWithdrawn;
    std::string ownedReason;
};

}  // namespace

qv_subscription* qv_client_subscribe(const qv_client* client, const int32_t* ids, size_t count,
                                     qv_client_error* error) {
    qv_subscription* created = nullptr;
    client::guarded(error, [&] {
        created = new qv_subscription{client->client.subscribe(client::idsOf(ids, count))};
        return client::report(error, QV_CLIENT_OK, 0, "");
    });
    return created;
}

int qv_subscription_next(qv_subscription* subscription, qv_event** event, int timeout,
                         qv_client_error* error) {
    *event = nullptr;
    return client::guarded(error, [&] {
        std::optional<client::Event> next =
            subscription->subscription.next(client::timeoutOf(timeout));
        if (next) {
            *event = std::make_unique<OwnedEvent>(std::move(*next)).release();
        }
        return client::report(error, QV_CLIENT_OK, 0, "");
    });
}

int qv_subscription_descriptor(const qv_subscription* subscription) {
    return subscription->subscription.descriptor();
}

void qv_subscription_destroy(qv_subscription* subscription) {
    delete subscription;
}

void qv_event_destroy(qv_event* event) {
    delete static_cast<OwnedEvent*>(event);
}
