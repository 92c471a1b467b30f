// SPDX-License-Identifier: Apache-2.0

// Reads the requests that name the services they ask for: QV_HOST_COMMAND_FIND and
// QV_HOST_COMMAND_SUBSCRIBE.
#ifndef QVHOST_SERVER_QUESTIONS_H
#define QVHOST_SERVER_QUESTIONS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/ClientLimits.h"
#include "server/Door.h"
#include "server/Snapshot.h"

namespace qv::host {

// A question may name this many identifiers, and its input may have as many bytes as they take at
// most. So the host can keep what a client asked for beside the budget of all clients.
constexpr std::size_t kMostIdsOfQuestion = 1000;
constexpr std::size_t kLongestQuestion = kSharedReadBuffer;

// The identifiers of a question, ascending and each only once.
using Identifiers = std::vector<int32_t>;

// What a client asks for that subscribes.
struct SubscriptionWish {
    // The last event that the client received, in an earlier subscription.
    struct Event {
        uint64_t epoch = 0;
        int64_t revision = 0;
    };

    Identifiers ids;  // all services if there are none
    std::optional<Event> last;
};

// Read the input of the commands. Return QV_OK and set the last argument. Otherwise return the
// answer that refuses the request:
//   - QV_ERROR_ARGUMENT without a text if the bytes do not parse;
//   - QV_HOST_ERROR_REFUSED with a text if the question is too long.
// Throw std::bad_alloc.
Outcome readFind(std::string_view input, Identifiers& ids);
Outcome readSubscription(std::string_view input, SubscriptionWish& wish);

// Returns those of the services that the snapshot has, as a serialised ServiceInfoArray. Throws
// std::bad_alloc.
std::string entriesOf(const Identifiers& ids, const Snapshot& snapshot);

}  // namespace qv::host

#endif  // QVHOST_SERVER_QUESTIONS_H
