// SPDX-License-Identifier: Apache-2.0

#include "server/Connection.h"

#include <algorithm>
#include <array>
#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <cstddef>

#include "server/Farewell.h"

namespace qv::host {

namespace {

// The pieces that go to the system at once, a sequence of buffers for Asio.
class Pieces {
  public:
    explicit Pieces(const AnswerQueue& answers) {
        std::array<std::string_view, kMost> views;
        count_ = answers.pieces(views.data(), kMost);
        std::transform(views.begin(), views.begin() + count_, buffers_.begin(),
                       [](std::string_view view) { return asio::buffer(view); });
    }

    const asio::const_buffer* begin() const { return buffers_.data(); }
    const asio::const_buffer* end() const { return buffers_.data() + count_; }

  private:
    static constexpr std::size_t kMost = 64;  // Asio takes no more

    std::array<asio::const_buffer, kMost> buffers_;
    std::size_t count_ = 0;
};

}  // namespace

Connection::Connection(ClientSocket connected, uid_t user, ClientThread& itsThread,
                       const ServingParts& itsParts)
    : socket(std::move(connected)),
      client(itsParts.clients, socket.native_handle(), user),
      place(itsThread),
      account(itsParts.budget, user),
      thread(itsThread),
      parts(itsParts) {
    socket.non_blocking(true);
}

void Connection::refuse(uint32_t code, uint32_t number, std::string_view text) {
    parts.counts.refusal(code);
    answers.append(code, number, text);
}

Connection::Sent Connection::send() {
    while (answers.size() != 0) {
        asio::error_code error;
        std::string_view first;
        static_cast<void>(answers.pieces(&first, 1));
        // Most answers are one piece, which costs less than a list of one piece.
        const std::size_t sent = first.size() == answers.size()
                                     ? socket.write_some(asio::buffer(first), error)
                                     : socket.write_some(Pieces(answers), error);
        if (error && error != asio::error::would_block) {
            close();
            return Sent::Gone;
        }
        answers.sent(sent);
        if (error) {
            return Sent::Some;
        }
    }
    sendUntil_ = {};
    return Sent::All;
}

void Connection::watchReader() {
    using Clock = ConnectedClient::Clock;
    if (sendUntil_ == Clock::time_point() && parts.limits.frameTimeout.count() != 0) {
        sendUntil_ = Clock::now() + parts.limits.frameTimeout;
    }
    client.writes(sendUntil_);
}

void Connection::close() noexcept {
    sayGoodbye(socket.native_handle());
}

}  // namespace qv::host
