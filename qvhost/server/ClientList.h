// SPDX-License-Identifier: Apache-2.0

// Lists the connected clients. Other threads than a client's own end its connection here: when the
// client takes too long, and when the host stops. The client's own thread sees that the socket
// ended and asks for the reason.
#ifndef QVHOST_SERVER_CLIENT_LIST_H
#define QVHOST_SERVER_CLIENT_LIST_H

#include <QvSystem/ThreadSafety.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_set>

#include "server/Shares.h"

namespace qv::host {

class ConnectedClient;

class ClientList {
  public:
    using Clock = std::chrono::steady_clock;

    // At most `places` clients may be connected. See Shares.h for how many of them one user gets.
    // `owner` is the host's own user.
    ClientList(std::size_t places, uid_t owner) : shares_(places, owner) {}

    std::size_t count() const;

    // Returns why there is no place for a client of the user, as a line for a person. The text is
    // empty if there is one. Throws std::bad_alloc.
    std::string refusal(uid_t user) const;

    // Ends the connections of clients that take too long.
    void sweep(Clock::time_point now);

    // Receives nothing more from any client. Requests that have arrived are still answered. Calls
    // `emptied` on any thread when the last client has gone. No client may join afterwards.
    void stop(std::function<void()> emptied);

    // Ends every connection at once, even if answers are not sent yet.
    void drop();

    // Forgets the function that stop() was given.
    void forget();

  private:
    friend class ConnectedClient;

    Shares::User& add(ConnectedClient& client, uid_t user);
    void remove(ConnectedClient& client, Shares::User& user);

    mutable system::Mutex mutex_;
    Shares shares_ QV_GUARDED_BY(mutex_);
    std::unordered_set<ConnectedClient*> clients_ QV_GUARDED_BY(mutex_);
    std::function<void()> emptied_ QV_GUARDED_BY(mutex_);
};

class ConnectedClient {
  public:
    using Clock = ClientList::Clock;

    enum class Ending { ByItself, TimedOut, Stopped };

    // Is in the list for as long as it lives, and takes a place of the user. The socket must stay
    // open for longer. Throws std::bad_alloc.
    ConnectedClient(ClientList& list, int socket, uid_t user);
    ~ConnectedClient();

    ConnectedClient(const ConnectedClient&) = delete;
    ConnectedClient& operator=(const ConnectedClient&) = delete;

    // Tell what the host waits for, and until when. The epoch stands for no bound. When the time is
    // over, the host reads nothing more from a client that it reads from, and ends the connection
    // of a client that it writes to.
    void reads(Clock::time_point until) { watch(until.time_since_epoch().count()); }
    void writes(Clock::time_point until) { watch(-until.time_since_epoch().count()); }
    void works() { watch(0); }

    Ending ending() const { return ending_.load(); }

    // Only the list calls these, because it knows that the socket is open.
    void sweep(Clock::time_point now);
    void stop();
    void drop();

  private:
    void watch(Clock::rep until) { watch_.store(until); }
    // Tells whether the client has acted and only its thread is late.
    bool isReadyFor(bool reading) const;
    void shutDown(int how) const;

    ClientList& list_;
    const int socket_;
    Shares::User& user_;
    // Holds time and direction in one value, so that a sweep sees both at once: positive while the
    // host reads, negative while it writes, 0 for no bound.
    std::atomic<Clock::rep> watch_{0};
    std::atomic<Ending> ending_{Ending::ByItself};
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_CLIENT_LIST_H
