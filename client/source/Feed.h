// SPDX-License-Identifier: Apache-2.0

// Does the work of a subscription: connects, asks for the events, checks that they follow each
// other, and connects again. Never waits outside next(). The text of an Error is the reason alone.
#ifndef QV_CLIENT_FEED_H
#define QV_CLIENT_FEED_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Deadline.h"
#include "Events.h"
#include "Frame.h"
#include "QvClient.h"
#include "Socket.h"
#include "Waker.h"

namespace qv::client {

class Feed {
  public:
    // Throws Error if there are more identifiers than a request holds. next() connects.
    Feed(ClientOptions options, std::vector<int32_t> ids);

    // These do what Subscription says.
    std::optional<Event> next(const Deadline& deadline);
    int descriptor() const noexcept { return waker_.descriptor(); }

  private:
    static constexpr std::chrono::milliseconds kFirstPause{20};
    static constexpr std::chrono::milliseconds kLongestPause{2000};

    std::optional<Event> step();
    void connect();
    bool send();
    std::optional<Event> receive();
    Event accept(const std::string& bytes);
    bool isExpected(const ReceivedEvent& received) const;
    void setDue(const Deadline& due);
    void disconnect();

    const ClientOptions options_;
    const std::vector<int32_t> ids_;  // ascending
    Waker waker_;

    std::optional<Socket> socket_;
    std::string request_;
    std::size_t sent_ = 0;  // bytes of the request
    IncomingFrame frame_;
    bool isFirst_ = true;  // no event has arrived on this connection

    // While connected, the time by which the host has to send more. Otherwise the time to connect.
    Deadline due_;
    std::chrono::milliseconds pause_ = kFirstPause;  // before the next attempt to connect
    bool isAway_ = false;                            // the caller knows that the host is away
    std::optional<Position> position_;               // after the last event
};

}  // namespace qv::client

#endif  // QV_CLIENT_FEED_H
