// A client's socket. Naming the executor spares what a socket of any executor costs.
#ifndef QVHOST_SERVER_CLIENT_SOCKET_H
#define QVHOST_SERVER_CLIENT_SOCKET_H

#include <asio/basic_stream_socket.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>

namespace qv::host {

using ClientSocket =
    asio::basic_stream_socket<asio::local::stream_protocol, asio::io_context::executor_type>;

}  // namespace qv::host

#endif  // QVHOST_SERVER_CLIENT_SOCKET_H
