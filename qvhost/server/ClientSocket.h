// SPDX-License-Identifier: Apache-2.0

// Names the type of a client's socket. A socket of any executor would cost more.
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
