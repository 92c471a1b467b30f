// SPDX-License-Identifier: Apache-2.0

#include "server/Acceptor.h"

#include <QvFrame.h>
#include <fmt/format.h>
#include <unistd.h>

#include <asio/error.hpp>
#include <asio/socket_base.hpp>
#include <chrono>
#include <exception>
#include <new>
#include <system_error>
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
                   ClientList& clients, Counts& counts, const ServerSettings& settings, Serve serve)
    : acceptor_(own, asio::local::stream_protocol(), descriptor),
      timer_(own),
      threads_(threads),
      clients_(clients),
      counts_(counts),
      settings_(settings),
      serve_(std::move(serve)) {
    acceptor_.non_blocking(true);
    setTimersAside(own, 1);
}

// Waits until a client can be accepted. Only then is it known which thread has the fewest clients.
void Acceptor::wait() {
    acceptor_.async_wait(asio::socket_base::wait_read,
                         waitMemory_.keep([this](const asio::error_code& failure) {
                             if (!stopped_) {
                                 arrived(failure);
                             }
                         }));
}

void Acceptor::arrived(const asio::error_code& failure) {
    // Another descriptor may have taken the place of the one that was waited at.
    const bool isOther = failure == asio::error::operation_aborted;
    const asio::error_code error = failure && !isOther ? failure : accept();
    if (error && error != asio::error::would_block && error != asio::error::connection_aborted) {
        pause(error);
    } else {
        wait();
    }
}

asio::error_code Acceptor::accept() noexcept {
    try {
        ClientThread& thread = threads_.next();
        ClientSocket socket(thread.context());
        asio::error_code error;
        acceptor_.accept(socket, error);
        if (!error) {
            paused_ = false;
            admit(std::move(socket), thread);
        }
        return error;
    } catch (const std::bad_alloc&) {
        return asio::error::no_memory;
    } catch (const std::exception& error) {
        // The client has gone already, or the system cannot serve it.
        writeJournal(error.what());
        return {};
    }
}

void Acceptor::admit(ClientSocket socket, ClientThread& thread) {
    const Peer peer = peerOf(socket.native_handle());
    if (!mayUse(peer, geteuid(), settings_.access)) {
        if (refusedUsers_.isNews(peer.user, RefusedUsers::Clock::now())) {
            writeJournal(fmt::format("refused user {}", peer.user));
        }
        refuse(socket, QV_HOST_ERROR_FORBIDDEN,
               fmt::format("user {} may not use this host", peer.user));
        return;
    }
    const std::string refusal = clients_.refusal(peer.user);
    if (!refusal.empty()) {
        refuse(socket, QV_HOST_ERROR_CLIENTS, refusal);
        return;
    }
    serve_(std::move(socket), peer.user, thread);
}

void Acceptor::refuse(ClientSocket& socket, uint32_t code, const std::string& text) {
    counts_.refusal(code);
    turnAway(socket.native_handle(), code, text);
}

void Acceptor::pause(const asio::error_code& error) {
    // Reports this once, not ten times a second.
    if (!std::exchange(paused_, true)) {
        try {
            writeJournal("clients have to wait: cannot accept them: " + error.message());
        } catch (const std::bad_alloc&) {
            writeJournal("clients have to wait: out of memory");
        }
    }
    timer_.expires_after(kPause);
    timer_.async_wait(pauseMemory_.keep([this](const asio::error_code& cancelled) {
        if (!cancelled && !stopped_) {
            wait();
        }
    }));
}

// Accepts the clients that wait now.
void Acceptor::acceptWaiting() {
    for (int i = 0; i < kClientsAdmittedAtOnce; ++i) {
        const asio::error_code error = accept();
        if (error && error != asio::error::connection_aborted) {
            break;
        }
    }
}

void Acceptor::replace(system::Descriptor descriptor) {
    Socket next(acceptor_.get_executor(), asio::local::stream_protocol(), descriptor.get());
    static_cast<void>(descriptor.release());
    next.non_blocking(true);
    acceptWaiting();
    acceptor_ = std::move(next);
}

void Acceptor::stop(bool last) {
    stopped_ = true;
    if (last) {
        acceptWaiting();
    }
    asio::error_code ignored;
    acceptor_.close(ignored);
}

}  // namespace qv::host
