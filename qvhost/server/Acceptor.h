// SPDX-License-Identifier: Apache-2.0

// Accepts clients and refuses those that may not connect. Goes on, with pauses, if the system is
// short of memory or descriptors.
#ifndef QVHOST_SERVER_ACCEPTOR_H
#define QVHOST_SERVER_ACCEPTOR_H

#include <QvSystem/Descriptor.h>
#include <sys/types.h>

#include <asio/basic_socket_acceptor.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/steady_timer.hpp>
#include <cstdint>
#include <functional>
#include <string>

#include "server/ClientList.h"
#include "server/ClientSocket.h"
#include "server/ClientThreads.h"
#include "server/Counts.h"
#include "server/HandlerMemory.h"
#include "server/RefusedUsers.h"
#include "server/Settings.h"

namespace qv::host {

class Acceptor {
  public:
    // Takes a client of a user over. Throws std::exception.
    using Serve = std::function<void(ClientSocket, uid_t, ClientThread&)>;

    // Takes over the descriptor, which listens. Waits in the context `own` for clients, which get a
    // thread of `threads`. Only the thread of `own` may use the object. All arguments must outlive
    // it. Throws std::system_error.
    Acceptor(asio::io_context& own, ClientThreads& threads, int descriptor, ClientList& clients,
             Counts& counts, const ServerSettings& settings, Serve serve);

    // Throws std::bad_alloc.
    void start() { wait(); }

    // Accepts the clients that wait at the first descriptor, closes it, and takes over another one
    // that listens. Goes on with the first one and throws std::system_error if that fails.
    void replace(system::Descriptor descriptor);

    // Accepts no more clients. If `last`, the socket ends with the host, so accepts those that wait
    // first. Otherwise they wait for the next host.
    void stop(bool last);

  private:
    using Socket =
        asio::basic_socket_acceptor<asio::local::stream_protocol, asio::io_context::executor_type>;

    void wait();
    void arrived(const asio::error_code& failure);
    void acceptWaiting();
    asio::error_code accept() noexcept;
    void admit(ClientSocket socket, ClientThread& thread);
    void refuse(ClientSocket& socket, uint32_t code, const std::string& text);
    void pause(const asio::error_code& error);

    Socket acceptor_;
    asio::steady_timer timer_;
    // The object waits for a client or for the end of a pause. Neither may fail.
    HandlerMemory waitMemory_;
    HandlerMemory pauseMemory_;
    ClientThreads& threads_;
    ClientList& clients_;
    Counts& counts_;
    const ServerSettings& settings_;
    Serve serve_;
    RefusedUsers refusedUsers_;
    bool paused_ = false;
    bool stopped_ = false;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_ACCEPTOR_H
