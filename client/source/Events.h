// SPDX-License-Identifier: Apache-2.0

// Serialises the request for a subscription and parses its events.
#ifndef QV_CLIENT_EVENTS_H
#define QV_CLIENT_EVENTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "QvClient.h"

namespace qv::client {

// Says up to where a subscription knows the changes of a directory.
struct Position {
    uint64_t epoch = 0;  // of the run of the host
    int64_t revision = 0;
};

struct ReceivedEvent {
    Event event;
    Position position;  // after the event
};

// Throws Error if the message would be too long.
std::string messageOfSubscription(const std::vector<int32_t>& ids,
                                  const std::optional<Position>& position);

// Returns nothing if the bytes are no event, or one that contradicts itself: an identifier comes
// twice, or a snapshot holds changes.
std::optional<ReceivedEvent> eventOf(const std::string& message);

}  // namespace qv::client

#endif  // QV_CLIENT_EVENTS_H
