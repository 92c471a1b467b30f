// SPDX-License-Identifier: Apache-2.0

#include "server/Connection.h"

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstddef>

#include "server/Farewell.h"

namespace qv::host {

namespace {

// To send to a client that has gone is an error and no signal.
#ifdef MSG_NOSIGNAL
constexpr int kNoSignal = MSG_NOSIGNAL;
#else
constexpr int kNoSignal = 0;  // Asio sets an option of the socket
#endif

// The most pieces that go to the system at once.
constexpr std::size_t kMostPieces = 64;

// Sends the next answers. Returns how many bytes went, or -1 with errno.
ssize_t sendNext(int socket, const AnswerQueue& answers) {
    std::string_view first;
    static_cast<void>(answers.pieces(&first, 1));
    // Most answers are one piece, which costs less than a list of one piece.
    if (first.size() == answers.size()) {
        return ::send(socket, first.data(), first.size(), kNoSignal);
    }
    std::array<std::string_view, kMostPieces> pieces;
    const std::size_t count = answers.pieces(pieces.data(), pieces.size());
    std::array<iovec, kMostPieces> buffers = {};
    for (std::size_t i = 0; i < count; ++i) {
        buffers[i] = {const_cast<char*>(pieces[i].data()), pieces[i].size()};
    }
    msghdr message = {};
    message.msg_iov = buffers.data();
    message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
    return ::sendmsg(socket, &message, kNoSignal);
}

}  // namespace

Connection::Connection(ClientSocket connected, uid_t user, ClientThread& itsThread,
                       const ServingParts& itsParts)
    : socket(std::move(connected)),
      client(itsParts.clients, socket.descriptor(), user),
      place(itsThread),
      account(itsParts.budget, user),
      thread(itsThread),
      parts(itsParts) {}

void Connection::refuse(uint32_t code, uint32_t number, std::string_view text) {
    parts.counts.refusal(code);
    answers.append(code, number, text);
}

Connection::Sent Connection::send() {
    while (answers.size() != 0) {
        const ssize_t sent = sendNext(socket.descriptor(), answers);
        if (sent != -1) {
            answers.sent(static_cast<std::size_t>(sent));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return Sent::Some;
        } else if (errno != EINTR) {
            close();
            return Sent::Gone;
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
    sayGoodbye(socket.descriptor());
}

}  // namespace qv::host
