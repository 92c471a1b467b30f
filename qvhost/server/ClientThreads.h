// The threads that the clients' requests are executed on. Mostly that is where they were read: each
// thread that reads has a context and clients of its own, since threads that share a context wake
// each other at every request.
//
// That makes clients wait for each other, which is fine while it is short. Once a request took
// long, as one does that waits for the disk, those that come next are handed over, for ten times as
// long, to threads that share them. So clients wait for each other's long requests for a tenth of
// the time at most.
#ifndef QVHOST_SERVER_CLIENT_THREADS_H
#define QVHOST_SERVER_CLIENT_THREADS_H

#include <asio/io_context.hpp>
#include <atomic>
#include <cstddef>
#include <deque>

#include "server/ContextThreads.h"
#include "server/SlowTimes.h"

namespace qv::host {

// Reads for its clients.
class ClientThread {
  public:
    // A client's, for as long as it lives.
    class Place {
      public:
        explicit Place(ClientThread& thread) : thread_(thread) { ++thread_.clients_; }
        ~Place() { --thread_.clients_; }

        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

      private:
        ClientThread& thread_;
    };

    // Throws std::system_error.
    ClientThread();

    std::size_t clients() const { return clients_; }
    ContextThreads& threads() { return threads_; }
    asio::io_context& context() { return threads_.context(); }

  private:
    // Declared first: clients that are abandoned are counted off when the context goes.
    std::atomic<std::size_t> clients_ = 0;
    ContextThreads threads_{1};
};

class ClientThreads {
  public:
    // What one that reads has open: Asio's epoll, its timer and what wakes it.
    static constexpr std::size_t kDescriptors = 3;

    // So many read, and as many, or a few more, share what is handed over. Throws
    // std::system_error.
    explicit ClientThreads(std::size_t count);

    // Throws std::system_error; those that were started are to be abandoned then.
    void start();

    // To be called when there are no clients any more.
    void join();

    // Waits for the requests that are executed, and for nothing else.
    void abandon();

    // The one with the fewest clients.
    ClientThread& next();

    // Tells when to hand over, and is to be told of what was executed where it was read.
    SlowTimes& slowTimes() { return slowTimes_; }

    // Of the threads that share.
    asio::io_context& shared() { return sharing_.context(); }

  private:
    std::deque<ClientThread> reading_;
    const std::size_t sharingCount_;
    // Its clients go before the contexts of their sockets.
    ContextThreads sharing_;
    SlowTimes slowTimes_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_CLIENT_THREADS_H
