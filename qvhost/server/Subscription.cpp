// SPDX-License-Identifier: Apache-2.0

#include "server/Subscription.h"

#include <QvFrame.h>
#include <QvPlugin.h>

#include <array>
#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/socket_base.hpp>
#include <cstddef>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "server/History.h"
#include "server/Subscribers.h"

namespace qv::host {

namespace {

class Subscription : public Subscriber,
                     public Sleeper,
                     public Budget::Waiter,
                     public std::enable_shared_from_this<Subscription> {
  public:
    Subscription(std::unique_ptr<Connection> connection, uint32_t number, SubscriptionWish wish)
        : Subscriber(connection->thread.subscribers()),
          connection_(std::move(connection)),
          number_(number),
          ids_(std::move(wish.ids)) {
        if (wish.last) {
            position_ = history().positionOf(*wish.last);
        }
    }

    void start(bool hasMore);

  private:
    const History& history() const { return connection_->parts.recorder.history(); }

    bool takeEvents() noexcept override;
    void wokenUp() noexcept override;
    void granted(std::shared_ptr<Waiter> /*self*/) noexcept override {
        connection_->thread.wake(shared_from_this());
    }

    template <typename Function>
    void attempt(Function function) noexcept;
    bool take();
    bool appendEvents();
    bool appendSnapshot();
    void append(const Event& event);
    void send();
    void awaitInput();
    void receive();
    void refuse(uint32_t code, std::string_view text);
    void close() noexcept;

    const std::unique_ptr<Connection> connection_;
    const uint32_t number_;
    const Identifiers ids_;
    // The revision up to which the client has been sent everything. Nothing before the first
    // snapshot.
    std::optional<int64_t> position_;
    bool isFirst_ = true;        // nothing has been sent yet
    bool isSending_ = false;     // waits for room in the socket
    bool awaitsBudget_ = false;  // waits for room in the budget
    bool isRefused_ = false;     // ends when everything is sent
    bool hasEnded_ = false;
};

// Does something for the client. If memory runs out, ends the connection, but not the thread.
template <typename Function>
void Subscription::attempt(Function function) noexcept {
    try {
        function();
    } catch (const std::exception&) {
        close();
    }
}

void Subscription::start(bool hasMore) {
    if (hasMore) {
        refuse(QV_HOST_ERROR_SUBSCRIBED, "a subscription takes no further request");
        return;
    }
    awaitInput();
    if (takeEvents()) {
        connection_->thread.subscribers().tell();
    }
}

bool Subscription::takeEvents() noexcept {
    bool isLeft = false;
    if (!isSending_ && !awaitsBudget_ && !isRefused_ && !hasEnded_) {
        attempt([&] { isLeft = take(); });
    }
    return isLeft && !isSending_ && !hasEnded_;
}

// Sends what follows the position. Returns whether something is left. Everything that was taken
// before is sent.
bool Subscription::take() {
    const bool isLeft = appendEvents();
    if (awaitsBudget_) {
        return false;
    }
    if (std::exchange(isFirst_, false) && connection_->answers.size() == 0) {
        connection_->answers.append(QV_OK, number_, Event::end(history().epoch(), *position_));
    }
    send();
    return isLeft;
}

// Appends as many events as are sent at once. Returns whether some are left.
bool Subscription::appendEvents() {
    AnswerQueue& answers = connection_->answers;
    std::array<EventPointer, 16> events;
    while (answers.size() < kBytesOfEvents) {
        const std::optional<std::size_t> count =
            position_ ? history().after(*position_, events.data(), events.size()) : std::nullopt;
        if (count == 0U) {
            return false;
        }
        if (!count) {
            // A snapshot may have to wait for room. Nothing may wait for it then.
            if (answers.size() != 0) {
                return true;
            }
            if (!appendSnapshot()) {
                return false;
            }
            continue;
        }
        for (std::size_t i = 0; i < *count && answers.size() < kBytesOfEvents; ++i) {
            append(*events[i]);
        }
    }
    return true;
}

void Subscription::append(const Event& event) {
    if (ids_.empty()) {
        connection_->answers.append(QV_OK, number_, event.bytes());
    } else if (const std::string some = event.bytesOf(ids_); !some.empty()) {
        connection_->answers.append(QV_OK, number_, some);
    }
    position_ = event.revision();
}

// Appends the newest snapshot. Without room in the budget, waits for it and returns false.
bool Subscription::appendSnapshot() {
    AnswerQueue& answers = connection_->answers;
    for (;;) {
        const SnapshotPointer snapshot = connection_->parts.recorder.state()->snapshot;
        const std::string end = Event::end(history().epoch(), snapshot->revision(), true);
        if (ids_.empty()) {
            answers.append(number_, snapshot, end);
        } else {
            answers.append(QV_OK, number_, entriesOf(ids_, *snapshot) + end);
        }
        const std::size_t bytes = answers.size();
        if (bytes <= kBytesOfAnswers || connection_->account.hold(bytes)) {
            position_ = snapshot->revision();
            return true;
        }
        answers.removeLast();
        // The snapshot that is appended when there is room may be another one.
        if (!connection_->account.hold(bytes, shared_from_this())) {
            awaitsBudget_ = true;
            return false;
        }
    }
}

// Goes on when there is room in the budget.
void Subscription::wokenUp() noexcept {
    awaitsBudget_ = false;
    if (takeEvents()) {
        connection_->thread.subscribers().tell();
    }
}

// Sends the answers, or waits until the client has read some.
void Subscription::send() {
    switch (connection_->send()) {
        case Connection::Sent::All:
            if (!awaitsBudget_) {
                connection_->account.hold(0);
            }
            if (isRefused_) {
                close();
            }
            break;
        case Connection::Sent::Some:
            connection_->awaitRoom([self = shared_from_this()] {
                self->isSending_ = false;
                if (!self->hasEnded_) {
                    self->attempt([&] { self->send(); });
                    // The client may have missed events meanwhile.
                    self->connection_->thread.subscribers().tell();
                }
            });
            isSending_ = true;
            break;
        case Connection::Sent::Gone:
            hasEnded_ = true;
            break;
    }
}

// Waits for the client to end the connection. Nothing else may come.
void Subscription::awaitInput() {
    connection_->socket.attached().async_wait(
        asio::socket_base::wait_read,
        [self = shared_from_this()](const asio::error_code& /*error*/) {
            if (!self->hasEnded_) {
                self->attempt([&] { self->receive(); });
            }
        });
}

void Subscription::receive() {
    char byte = 0;
    asio::error_code error;
    static_cast<void>(connection_->socket.attached().read_some(asio::buffer(&byte, 1), error));
    if (error == asio::error::would_block) {
        awaitInput();
    } else if (!error) {
        refuse(QV_HOST_ERROR_SUBSCRIBED, "a subscription takes no further request");
    } else if (connection_->client.ending() == ConnectedClient::Ending::Stopped) {
        refuse(QV_HOST_ERROR_STOPPING, "the host is about to end");
    } else {
        close();
    }
}

// Tells the client why the subscription ends, behind everything that was taken before.
void Subscription::refuse(uint32_t code, std::string_view text) {
    isRefused_ = true;
    connection_->refuse(code, number_, text);
    if (!isSending_) {
        send();
    }
}

void Subscription::close() noexcept {
    hasEnded_ = true;
    connection_->close();
}

}  // namespace

void serveSubscriber(std::unique_ptr<Connection> connection, uint32_t number, SubscriptionWish wish,
                     bool hasMore) {
    std::make_shared<Subscription>(std::move(connection), number, std::move(wish))->start(hasMore);
}

}  // namespace qv::host
