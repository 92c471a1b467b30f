// SPDX-License-Identifier: Apache-2.0

// The connection to one client, and what the client has of the host: its place in the list of
// clients, at its thread and in the budget, and the answers that are not sent yet. A conversation
// or a subscription owns it. Only one thread uses it at a time: the client's thread, or the
// recorder's while that answers a change and takes the next one.
#ifndef QVHOST_SERVER_CONNECTION_H
#define QVHOST_SERVER_CONNECTION_H

#include <sys/types.h>

#include <asio/error_code.hpp>
#include <asio/socket_base.hpp>
#include <cstdint>
#include <string_view>
#include <utility>

#include "server/AnswerQueue.h"
#include "server/Budget.h"
#include "server/ClientLimits.h"
#include "server/ClientList.h"
#include "server/ClientSocket.h"
#include "server/ClientThreads.h"
#include "server/Commands.h"
#include "server/Counts.h"
#include "server/Recorder.h"

namespace qv::host {

// What all clients use.
struct ServingParts {
    const Recorder& recorder;
    Commands& commands;
    ClientList& clients;
    Budget& budget;
    Counts& counts;
    const ClientLimits& limits;
};

class Connection {
  public:
    enum class Sent {
        All,
        Some,  // the client has to read before there is room for the rest
        Gone,  // the connection is lost and ended
    };

    // Throws std::bad_alloc and std::system_error.
    Connection(ClientSocket connected, uid_t user, ClientThread& itsThread,
               const ServingParts& itsParts);

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() = default;

    // Appends the answer of a request that is refused, and counts it. Throws std::bad_alloc.
    void refuse(uint32_t code, uint32_t number, std::string_view text);

    // Sends the answers, as far as the socket has room.
    Sent send();

    // Calls the function when there is room again, or when the connection ended. The client must
    // have read all answers within the frame time-out. The function keeps this object alive. Throws
    // std::bad_alloc.
    template <typename Function>
    void awaitRoom(Function function) {
        watchReader();
        socket.attached().async_wait(
            asio::socket_base::wait_write,
            [this, function = std::move(function)](const asio::error_code& /*error*/) {
                // Sending tells of an error again.
                client.works();
                function();
            });
    }

    // Ends the connection.
    void close() noexcept;

    // The order matters: the client must leave its list before the socket closes.
    DetachableSocket socket;
    ConnectedClient client;
    ClientThread::Place place;
    Budget::Account account;
    ClientThread& thread;
    const ServingParts parts;
    AnswerQueue answers;

  private:
    void watchReader();

    // When the client must have read the answers. The epoch stands for no bound.
    ConnectedClient::Clock::time_point sendUntil_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_CONNECTION_H
