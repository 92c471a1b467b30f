// What others than a client's own thread may know and do about it: for how long it may be waited
// for, and how it is parted with. Whoever serves the client sees that its socket ended, and asks
// for the reason then.
#ifndef QVHOST_SERVER_CLIENT_LIST_H
#define QVHOST_SERVER_CLIENT_LIST_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <unordered_set>

namespace qv::host {

class ConnectedClient;

class ClientList {
  public:
    using Clock = std::chrono::steady_clock;

    std::size_t count() const;

    // Parts with those that are overdue.
    void sweep(Clock::time_point now);

    // From all: what has arrived is all that will. `emptied` is called, on any thread, when the
    // last has gone. Nobody may join afterwards.
    void stop(std::function<void()> emptied);

    // Ends every conversation, what is owed to the client included.
    void drop();

    // Nobody is told any more when the last has gone.
    void forget();

  private:
    friend class ConnectedClient;

    void add(ConnectedClient& client);
    void remove(ConnectedClient& client);

    mutable std::mutex mutex_;
    std::unordered_set<ConnectedClient*> clients_;
    std::function<void()> emptied_;
};

class ConnectedClient {
  public:
    using Clock = ClientList::Clock;

    enum class Ending { ByItself, TimedOut, Stopped };

    // In the list for as long as it lives. The socket must be open for longer.
    ConnectedClient(ClientList& list, int socket);
    ~ConnectedClient();

    ConnectedClient(const ConnectedClient&) = delete;
    ConnectedClient& operator=(const ConnectedClient&) = delete;

    // What it is waited for, and until when; a time of nothing since the epoch is for ever. When
    // the time is over, nothing more is read from it, or neither read nor written.
    void reads(Clock::time_point until) { watch(until.time_since_epoch().count()); }
    void writes(Clock::time_point until) { watch(-until.time_since_epoch().count()); }
    void works() { watch(0); }

    Ending ending() const { return ending_.load(); }

    // For the list alone, which knows that the socket is open.
    void sweep(Clock::time_point now);
    void stop();
    void drop();

  private:
    void watch(Clock::rep until) { watch_.store(until); }
    // Whether it has done what it is waited for, and its thread just has not come to it.
    bool isReadyFor(bool reading) const;
    void shutDown(int how) const;

    ClientList& list_;
    const int socket_;
    // Time and direction in one, so that no sweep mistakes one for the other: positive while it is
    // read from, negative while it is written to.
    std::atomic<Clock::rep> watch_{0};
    std::atomic<Ending> ending_{Ending::ByItself};
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_CLIENT_LIST_H
