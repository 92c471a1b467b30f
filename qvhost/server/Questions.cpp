// SPDX-License-Identifier: Apache-2.0

#include "server/Questions.h"

#include <QvFrame.h>
#include <QvHost.pb.h>
#include <QvPlugin.h>
#include <fmt/format.h>

#include <algorithm>

namespace qv::host {

namespace {

// Reads the message and its identifiers.
template <typename Message>
Outcome readQuestion(std::string_view input, Message& message, Identifiers& ids) {
    if (input.size() > kLongestQuestion) {
        return {QV_HOST_ERROR_REFUSED,
                fmt::format("the question has {} bytes, and the host takes {}", input.size(),
                            kLongestQuestion)};
    }
    if (!message.ParseFromArray(input.data(), static_cast<int>(input.size()))) {
        return {QV_ERROR_ARGUMENT, {}};
    }
    const auto count = static_cast<std::size_t>(message.ids_size());
    if (count > kMostIdsOfQuestion) {
        return {QV_HOST_ERROR_REFUSED,
                fmt::format("the question names {} services, and the host takes {}", count,
                            kMostIdsOfQuestion)};
    }
    ids.assign(message.ids().begin(), message.ids().end());
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return {QV_OK, {}};
}

}  // namespace

Outcome readFind(std::string_view input, Identifiers& ids) {
    wire::HostFind message;
    return readQuestion(input, message, ids);
}

Outcome readSubscription(std::string_view input, SubscriptionWish& wish) {
    wire::HostSubscription message;
    Outcome outcome = readQuestion(input, message, wish.ids);
    if (message.has_epoch() && message.has_revision()) {
        wish.last = {message.epoch(), message.revision()};
    }
    return outcome;
}

std::string entriesOf(const Identifiers& ids, const Snapshot& snapshot) {
    std::string bytes;
    for (const int32_t id : ids) {
        bytes.append(snapshot.entry(id));
    }
    return bytes;
}

}  // namespace qv::host
