// SPDX-License-Identifier: Apache-2.0

#include "server/ClientList.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>

#include <utility>

namespace qv::host {

std::size_t ClientList::count() const {
    const system::MutexLock lock(mutex_);
    return clients_.size();
}

std::string ClientList::refusal(uid_t user) const {
    const system::MutexLock lock(mutex_);
    const Shares::User wanted = shares_.userOf(user);
    if (shares_.boundOf(wanted, 1) == Shares::Bound::None) {
        return "";
    }
    return fmt::format(
        "{} clients are connected, {} of them of user {}, and the host takes no more of this user",
        shares_.used(), wanted.used, user);
}

void ClientList::sweep(Clock::time_point now) {
    const system::MutexLock lock(mutex_);
    for (ConnectedClient* const client : clients_) {
        client->sweep(now);
    }
}

void ClientList::stop(std::function<void()> emptied) {
    {
        const system::MutexLock lock(mutex_);
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
    const system::MutexLock lock(mutex_);
    for (ConnectedClient* const client : clients_) {
        client->drop();
    }
}

void ClientList::forget() {
    const system::MutexLock lock(mutex_);
    emptied_ = nullptr;
}

Shares::User& ClientList::add(ConnectedClient& client, uid_t user) {
    const system::MutexLock lock(mutex_);
    const auto place = clients_.insert(&client).first;
    try {
        Shares::User& joined = shares_.join(user);
        shares_.take(joined, 1);
        return joined;
    } catch (...) {
        clients_.erase(place);
        throw;
    }
}

void ClientList::remove(ConnectedClient& client, Shares::User& user) {
    std::function<void()> emptied;
    {
        const system::MutexLock lock(mutex_);
        clients_.erase(&client);
        shares_.giveBack(user, 1);
        shares_.leave(user);
        if (clients_.empty()) {
            emptied = std::exchange(emptied_, nullptr);
        }
    }
    if (emptied) {
        emptied();
    }
}

ConnectedClient::ConnectedClient(ClientList& list, int socket, uid_t user)
    : list_(list), socket_(socket), user_(list_.add(*this, user)) {}

ConnectedClient::~ConnectedClient() {
    list_.remove(*this, user_);
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
