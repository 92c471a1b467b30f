// SPDX-License-Identifier: Apache-2.0

#include "Feed.h"

#include <QvFrame.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "Answer.h"

namespace qv::client {

namespace {

// A subscription is the only request of its connection.
constexpr uint32_t kNumber = 1;

// Much more than all services that a host keeps.
constexpr uint32_t kLongestEvent = uint32_t{256} << 20;

std::vector<int32_t> sorted(std::vector<int32_t> ids) {
    std::sort(ids.begin(), ids.end());
    return ids;
}

// Tells whether the host may be there again without anybody's doing.
bool isPassing(const Error& error) {
    switch (error.kind()) {
        case Error::Kind::CannotConnect:
        case Error::Kind::ConnectionLost:
        case Error::Kind::TimedOut:
            return true;
        case Error::Kind::Refused:
            return error.code() == QV_HOST_ERROR_CLIENTS || error.code() == QV_HOST_ERROR_TIMEOUT ||
                   error.code() == QV_HOST_ERROR_STOPPING;
        default:
            return false;
    }
}

void checkHeader(const QvFrameHeader& header) {
    const bool belongsToNoRequest = header.number == 0 && endsTheConnection(header.code);
    if (header.number != kNumber && !belongsToNoRequest) {
        throw brokenAnswer("it is to request " + std::to_string(header.number) + ", not " +
                           std::to_string(kNumber));
    }
    if (header.length > kLongestEvent) {
        throw brokenAnswer("it claims to have " + std::to_string(header.length) + " bytes");
    }
}

}  // namespace

Feed::Feed(ClientOptions options, std::vector<int32_t> ids)
    : options_(std::move(options)), ids_(sorted(std::move(ids))), due_(kNoTimeout) {
    messageOfSubscription(ids_, Position());
    setDue(Deadline(std::chrono::milliseconds(0)));
}

std::optional<Event> Feed::next(const Deadline& deadline) {
    while (true) {
        std::optional<Event> event = step();
        if (event || deadline.hasPassed()) {
            return event;
        }
        waker_.wait(deadline);
    }
}

// Does what can be done without waiting.
std::optional<Event> Feed::step() {
    try {
        if (!socket_) {
            if (!due_.hasPassed()) {
                return std::nullopt;
            }
            connect();
        }
        return receive();
    } catch (const Error& error) {
        disconnect();
        const bool wasAway = std::exchange(isAway_, true);
        if (!isPassing(error)) {
            if (error.kind() == Error::Kind::BrokenAnswer) {
                position_.reset();
            }
            throw;
        }
        if (wasAway) {
            return std::nullopt;
        }
        Event event;
        event.kind = Event::Kind::Disconnected;
        event.reason = error.what();
        return event;
    } catch (...) {
        // The event that there was no memory for comes again.
        disconnect();
        throw;
    }
}

void Feed::connect() {
    request_ = frameOf(QV_HOST_COMMAND_SUBSCRIBE, kNumber, messageOfSubscription(ids_, position_));
    sent_ = 0;
    frame_ = IncomingFrame();
    isFirst_ = true;
    socket_.emplace(options_, Deadline(std::chrono::milliseconds(0)));
    waker_.watch(socket_->descriptor(), true);
    setDue(Deadline(options_.timeout));
}

// Sends more of the request. Returns whether bytes were sent.
bool Feed::send() {
    if (sent_ == request_.size()) {
        return false;
    }
    const std::optional<std::size_t> count =
        socket_->sendSome(std::string_view(request_).substr(sent_));
    // If the host has closed the connection, its last words are to be received.
    sent_ = count ? sent_ + *count : request_.size();
    if (sent_ == request_.size()) {
        waker_.watch(socket_->descriptor(), false);
    }
    return count.value_or(0) > 0;
}

std::optional<Event> Feed::receive() {
    const bool hasSent = send();
    const std::size_t before = frame_.received();
    bool isWhole = false;
    if (frame_.receiveHeader(*socket_)) {
        checkHeader(frame_.header());
        isWhole = frame_.receiveBytes(*socket_);
    }
    if (isWhole) {
        Answer answer = {frame_.header().code, std::move(frame_.bytes())};
        frame_ = IncomingFrame();
        return accept(bytesOf(std::move(answer)));
    }
    if (hasSent || frame_.received() != before) {
        setDue(Deadline(options_.timeout));
    } else if (due_.hasPassed()) {
        throw Error(Error::Kind::TimedOut, 0, "the host did not answer in time");
    }
    return std::nullopt;
}

// Returns the event if it may follow the earlier ones.
Event Feed::accept(const std::string& bytes) {
    std::optional<ReceivedEvent> received = eventOf(bytes);
    if (!received) {
        throw brokenAnswer("it is no event");
    }
    if (!isExpected(*received)) {
        throw brokenAnswer("it contradicts the earlier ones");
    }
    position_ = received->position;
    isFirst_ = false;
    isAway_ = false;
    pause_ = kFirstPause;
    // The next event may take any time.
    setDue(Deadline(kNoTimeout));
    return std::move(received->event);
}

bool Feed::isExpected(const ReceivedEvent& received) const {
    const Event& event = received.event;
    const bool isSnapshot = event.kind == Event::Kind::Snapshot;
    if (isFirst_) {
        if (!isSnapshot && (!position_ || event.revision < position_->revision)) {
            return false;
        }
    } else if (received.position.epoch != position_->epoch ||
               event.revision < position_->revision ||
               (event.revision == position_->revision && !isSnapshot)) {
        return false;
    }
    const auto isMine = [this](int32_t id) {
        return ids_.empty() || std::binary_search(ids_.begin(), ids_.end(), id);
    };
    const auto isServiceOfMine = [&](const Service& service) { return isMine(service.id); };
    return std::all_of(event.registered.begin(), event.registered.end(), isServiceOfMine) &&
           std::all_of(event.changed.begin(), event.changed.end(), isServiceOfMine) &&
           std::all_of(event.withdrawn.begin(), event.withdrawn.end(), isMine);
}

void Feed::setDue(const Deadline& due) {
    due_ = due;
    waker_.wakeAt(due_);
}

void Feed::disconnect() {
    if (socket_) {
        waker_.ignore(socket_->descriptor());
        socket_.reset();
    }
    setDue(Deadline(pause_));
    pause_ = std::min(2 * pause_, kLongestPause);
}

}  // namespace qv::client
