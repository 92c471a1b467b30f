// Takes the clients that connect, turns those away that may not come in, and goes on whatever the
// system is short of.
#ifndef QVHOST_SERVER_ACCEPTOR_H
#define QVHOST_SERVER_ACCEPTOR_H

#include <asio/basic_socket_acceptor.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/steady_timer.hpp>
#include <functional>

#include "Client.h"
#include "Settings.h"
#include "Socket.h"

namespace qv::host {

class Acceptor {
  public:
    // Accepts in `own`, for sockets of `clientsContext`, from the descriptor, which becomes its
    // own. Throws std::system_error.
    Acceptor(asio::io_context& own, asio::io_context& clientsContext, int descriptor,
             const ClientList& clients, const ServerSettings& settings,
             std::function<void(Socket)> serve);

    void start() { accept(); }

    // Takes no more. Those that are connected already come in first where the socket goes with the
    // host; they stay for its successor where it does not.
    void stop(bool last);

  private:
    void accept();
    void accepted(const asio::error_code& error, Socket socket);
    void admit(Socket socket);
    void pause(const asio::error_code& error);

    asio::basic_socket_acceptor<asio::local::stream_protocol, asio::io_context::executor_type>
        acceptor_;
    asio::steady_timer timer_;
    asio::io_context& clientsContext_;
    const ClientList& clients_;
    const ServerSettings& settings_;
    std::function<void(Socket)> serve_;
    bool paused_ = false;
    bool stopped_ = false;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_ACCEPTOR_H
