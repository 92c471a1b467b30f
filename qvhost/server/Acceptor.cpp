#include "server/Acceptor.h"

#include <QvFrame.h>
#include <fmt/format.h>
#include <unistd.h>

#include <asio/error.hpp>
#include <asio/socket_base.hpp>
#include <chrono>
#include <exception>
#include <new>
#include <optional>
#include <utility>

#include "StandardStreams.h"
#include "server/Access.h"
#include "server/Farewell.h"

namespace qv::host {

namespace {

// Gives the system time to free what it is short of.
constexpr std::chrono::milliseconds kPause(100);

}  // namespace

Acceptor::Acceptor(asio::io_context& own, ClientThreads& threads, int descriptor,
                   const ClientList& clients, const ServerSettings& settings, Serve serve)
    : acceptor_(own, asio::local::stream_protocol(), descriptor),
      timer_(own),
      threads_(threads),
      clients_(clients),
      settings_(settings),
      serve_(std::move(serve)) {
    acceptor_.non_blocking(true);
}

// Waits until a client can be accepted. Only then is it known which thread has the fewest clients.
void Acceptor::wait() {
    acceptor_.async_wait(asio::socket_base::wait_read, [this](const asio::error_code& failure) {
        if (stopped_) {
            return;
        }
        const asio::error_code error = failure ? failure : accept();
        if (error && error != asio::error::would_block &&
            error != asio::error::connection_aborted) {
            pause(error);
            return;
        }
        wait();
    });
}

asio::error_code Acceptor::accept() {
    ClientThread& thread = threads_.next();
    ClientSocket socket(thread.context());
    asio::error_code error;
    acceptor_.accept(socket, error);
    if (!error) {
        paused_ = false;
        admit(std::move(socket), thread);
    }
    return error;
}

void Acceptor::admit(ClientSocket socket, ClientThread& thread) {
    try {
        const Peer peer = peerOf(socket.native_handle());
        if (!mayUse(peer, geteuid(), settings_.access)) {
            turnAway(socket.native_handle(), QV_HOST_ERROR_FORBIDDEN,
                     fmt::format("user {} may not use this host", peer.user));
            return;
        }
        if (clients_.count() >= settings_.limits.maxClients) {
            turnAway(socket.native_handle(), QV_HOST_ERROR_CLIENTS,
                     fmt::format("{} clients are connected, and the host takes no more",
                                 settings_.limits.maxClients));
            return;
        }
        serve_(std::move(socket), thread);
    } catch (const std::exception& error) {
        // There is no memory for this client, or it has gone already.
        reportError(fmt::format("cannot serve a client: {}", error.what()));
    }
}

void Acceptor::pause(const asio::error_code& error) {
    // Reports this once, not ten times a second.
    if (!std::exchange(paused_, true)) {
        reportError(fmt::format("clients have to wait: cannot accept them: {}", error.message()));
    }
    timer_.expires_after(kPause);
    timer_.async_wait([this](const asio::error_code& cancelled) {
        if (!cancelled && !stopped_) {
            wait();
        }
    });
}

void Acceptor::stop(bool last) {
    stopped_ = true;
    timer_.cancel();
    for (int i = 0; last && i < kClientsAdmittedAtStop; ++i) {
        const asio::error_code error = accept();
        if (error && error != asio::error::connection_aborted) {
            break;
        }
    }
    asio::error_code ignored;
    acceptor_.close(ignored);
}

}  // namespace qv::host
