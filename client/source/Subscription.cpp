// SPDX-License-Identifier: Apache-2.0

#include <utility>

#include "Answer.h"
#include "Deadline.h"
#include "Feed.h"
#include "QvClient.h"

namespace qv::client {

Subscription::Subscription(std::unique_ptr<Feed> feed) : feed_(std::move(feed)) {}

Subscription::~Subscription() = default;
Subscription::Subscription(Subscription&& other) noexcept = default;
Subscription& Subscription::operator=(Subscription&& other) noexcept = default;

std::optional<Event> Subscription::next(std::chrono::milliseconds timeout) {
    return attempt("cannot follow the services", [&] { return feed_->next(Deadline(timeout)); });
}

int Subscription::descriptor() const noexcept {
    return feed_->descriptor();
}

}  // namespace qv::client
