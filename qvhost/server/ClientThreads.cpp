#include "server/ClientThreads.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <system_error>

#include "StandardStreams.h"
#include "server/ClientSocket.h"

namespace qv::host {

namespace {

// A client that changes without end keeps one thread at the disk, and a second such client keeps
// another one at the lock.
constexpr std::size_t kFewestSharing = 4;

}  // namespace

// Before the thread sleeps, it lets others run: waking it costs several times as much as reading
// what clients send meanwhile. A handler belongs to one client, whose connection goes with it.
void runClients(asio::io_context& context) {
    for (;;) {
        try {
            do {
                do {
                    std::this_thread::yield();
                } while (context.poll() != 0);
            } while (context.run_one() != 0);
            return;
        } catch (const std::exception& error) {
            reportError(fmt::format("a client was lost: {}", error.what()));
        }
    }
}

// Opens what a context opens for its first socket. A shortage is better met now than when a client
// comes.
ClientThread::ClientThread() {
    try {
        const ClientSocket first(context_);
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "cannot make a thread for clients");
    }
}

void ClientThread::start() {
    thread_ = std::thread([this] { runClients(context_); });
}

void ClientThread::join() {
    work_.reset();
    if (thread_.joinable()) {
        thread_.join();
    }
}

ClientThreads::ClientThreads(std::size_t count)
    : reading_(count),
      sharingCount_(std::max(count, kFewestSharing)),
      shared_(static_cast<int>(sharingCount_)) {}

void ClientThreads::start() {
    for (ClientThread& reader : reading_) {
        reader.start();
    }
    while (sharing_.size() < sharingCount_) {
        sharing_.emplace_back([this] { runClients(shared_); });
    }
}

void ClientThreads::join() {
    sharedWork_.reset();
    for (std::thread& thread : sharing_) {
        thread.join();
    }
    for (ClientThread& reader : reading_) {
        reader.join();
    }
}

void ClientThreads::abandon() {
    for (ClientThread& reader : reading_) {
        reader.context().stop();
    }
    shared_.stop();
    join();
}

ClientThread& ClientThreads::next() {
    return *std::min_element(reading_.begin(), reading_.end(),
                             [](const ClientThread& one, const ClientThread& other) {
                                 return one.clients() < other.clients();
                             });
}

}  // namespace qv::host
