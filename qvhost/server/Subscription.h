// SPDX-License-Identifier: Apache-2.0

// Serves one client that subscribed to the directory: sends a snapshot and then each commit, or
// starts over with another snapshot when the client has read too slowly. A subscription owns itself
// and its connection, until the client or the host ends it.
//
// A subscription has no queue but the bytes under way. It takes further events from the history
// when those are sent. A long snapshot comes out of the budget until it is sent.
#ifndef QVHOST_SERVER_SUBSCRIPTION_H
#define QVHOST_SERVER_SUBSCRIPTION_H

#include <cstdint>
#include <memory>

#include "server/Connection.h"
#include "server/Questions.h"

namespace qv::host {

// Begins a subscription on the client's thread. All answers of the connection are sent. `number` is
// that of the request, and `hasMore` tells whether the client sent anything after it. Closes the
// connection and throws std::bad_alloc if that fails.
void serveSubscriber(std::unique_ptr<Connection> connection, uint32_t number, SubscriptionWish wish,
                     bool hasMore);

}  // namespace qv::host

#endif  // QVHOST_SERVER_SUBSCRIPTION_H
