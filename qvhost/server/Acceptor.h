// Accepts clients and refuses those that may not connect. Keeps trying if the system is short of
// memory or descriptors.
#ifndef QVHOST_SERVER_ACCEPTOR_H
#define QVHOST_SERVER_ACCEPTOR_H

#include <asio/basic_socket_acceptor.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/steady_timer.hpp>
#include <functional>

#include "server/ClientList.h"
#include "server/ClientSocket.h"
#include "server/ClientThreads.h"
#include "server/Settings.h"

namespace qv::host {

class Acceptor {
  public:
    using Serve = std::function<void(ClientSocket, ClientThread&)>;

    // Takes over the descriptor, which listens. Waits in the context `own` for clients, which get a
    // thread of `threads`. Throws std::system_error.
    Acceptor(asio::io_context& own, ClientThreads& threads, int descriptor,
             const ClientList& clients, const ServerSettings& settings, Serve serve);

    void start() { wait(); }

    // Accepts no more clients. If `last`, the socket ends with the host, so accepts those that wait
    // first. Otherwise they wait for the next host.
    void stop(bool last);

  private:
    void wait();
    asio::error_code accept();
    void admit(ClientSocket socket, ClientThread& thread);
    void pause(const asio::error_code& error);

    asio::basic_socket_acceptor<asio::local::stream_protocol, asio::io_context::executor_type>
        acceptor_;
    asio::steady_timer timer_;
    ClientThreads& threads_;
    const ClientList& clients_;
    const ServerSettings& settings_;
    Serve serve_;
    bool paused_ = false;
    bool stopped_ = false;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_ACCEPTOR_H
