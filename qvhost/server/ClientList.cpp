#include "server/ClientList.h"

#include <poll.h>
#include <sys/socket.h>

#include <utility>

namespace qv::host {

std::size_t ClientList::count() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return clients_.size();
}

void ClientList::sweep(Clock::time_point now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (ConnectedClient* const client : clients_) {
        client->sweep(now);
    }
}

void ClientList::stop(std::function<void()> emptied) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (ConnectedClient* const client : clients_) {
            client->stop();
        }
        if (!clients_.empty()) {
            emptied_ = std::move(emptied);
            return;
        }
    }
    emptied();
}

void ClientList::drop() {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (ConnectedClient* const client : clients_) {
        client->drop();
    }
}

void ClientList::forget() {
    const std::lock_guard<std::mutex> lock(mutex_);
    emptied_ = nullptr;
}

void ClientList::add(ConnectedClient& client) {
    const std::lock_guard<std::mutex> lock(mutex_);
    clients_.insert(&client);
}

void ClientList::remove(ConnectedClient& client) {
    std::function<void()> emptied;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        clients_.erase(&client);
        if (clients_.empty()) {
            emptied = std::exchange(emptied_, nullptr);
        }
    }
    if (emptied) {
        emptied();
    }
}

ConnectedClient::ConnectedClient(ClientList& list, int socket) : list_(list), socket_(socket) {
    list_.add(*this);
}

ConnectedClient::~ConnectedClient() {
    list_.remove(*this);
}

void ConnectedClient::sweep(Clock::time_point now) {
    Clock::rep until = watch_.load();
    const Clock::rep time = now.time_since_epoch().count();
    if (until == 0 || (until > 0 ? until : -until) > time || isReadyFor(until > 0) ||
        !watch_.compare_exchange_strong(until, 0)) {
        return;
    }
    if (until < 0) {
        shutDown(SHUT_RDWR);
        return;
    }
    Ending none = Ending::ByItself;
    ending_.compare_exchange_strong(none, Ending::TimedOut);
    shutDown(SHUT_RD);
}

void ConnectedClient::stop() {
    ending_.store(Ending::Stopped);
    shutDown(SHUT_RD);
}

void ConnectedClient::drop() {
    shutDown(SHUT_RDWR);
}

bool ConnectedClient::isReadyFor(bool reading) const {
    pollfd socket = {socket_, static_cast<short>(reading ? POLLIN : POLLOUT), 0};
    return ::poll(&socket, 1, 0) != 0;
}

void ConnectedClient::shutDown(int how) const {
    // Fails if the other end has gone, which the reader or writer of the socket learns as well.
    static_cast<void>(::shutdown(socket_, how));
}

}  // namespace qv::host
