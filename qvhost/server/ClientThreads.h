// Holds the threads that execute the clients' requests. Each thread that reads has an Asio context
// and clients of its own, because threads that share a context wake each other at every request.
// It executes the requests that it reads, as long as they are short.
//
// A request that waits for the disk takes long, and the other clients of the thread wait for it.
// The requests that follow it, for ten times as long, are handed over to threads that share one
// context. So clients wait for each other's long requests for a tenth of the time at most.
#ifndef QVHOST_SERVER_CLIENT_THREADS_H
#define QVHOST_SERVER_CLIENT_THREADS_H

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <atomic>
#include <cstddef>
#include <deque>
#include <thread>
#include <vector>

#include "server/SlowTimes.h"

namespace qv::host {

// Runs the context until it is stopped or has no work. Reports what a client's handler throws.
void runClients(asio::io_context& context);

using WorkGuard = asio::executor_work_guard<asio::io_context::executor_type>;

// One thread that reads for its clients.
class ClientThread {
  public:
    // Counts a client of the thread for as long as the object lives.
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
    asio::io_context& context() { return context_; }

    // Throws std::system_error.
    void start();

    // Waits until the context has no work or, if it is stopped, until no handler runs.
    void join();

  private:
    // Declared first: clients that are abandoned leave the count when the context goes.
    std::atomic<std::size_t> clients_ = 0;
    asio::io_context context_{1};
    WorkGuard work_{context_.get_executor()};
    std::thread thread_;
};

class ClientThreads {
  public:
    // The descriptors of a thread that reads: Asio's epoll, its timer and what wakes it.
    static constexpr std::size_t kDescriptors = 3;

    // Makes `count` threads that read. As many, but at least a few, share the requests that are
    // handed over. Throws std::system_error.
    explicit ClientThreads(std::size_t count);

    // Throws std::system_error. Call abandon() then.
    void start();

    // Call when there are no clients any more.
    void join();

    // Waits for the requests that are executed, and for nothing else.
    void abandon();

    // Returns the thread with the fewest clients.
    ClientThread& next();

    // Tells when to hand requests over. Must be told of those that were executed where they were
    // read.
    SlowTimes& slowTimes() { return slowTimes_; }

    // Returns the context of the threads that share.
    asio::io_context& shared() { return shared_; }

  private:
    std::deque<ClientThread> reading_;
    // Declared behind the contexts that read: its clients go before the contexts of their sockets.
    const std::size_t sharingCount_;
    asio::io_context shared_;
    WorkGuard sharedWork_{shared_.get_executor()};
    std::vector<std::thread> sharing_;
    SlowTimes slowTimes_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_CLIENT_THREADS_H
