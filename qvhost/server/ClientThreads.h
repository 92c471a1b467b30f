// SPDX-License-Identifier: Apache-2.0

// Holds the threads that serve the clients. Each thread has an Asio context and clients of its own,
// because threads that share a context wake each other at every request.
//
// A request that takes long is carried out elsewhere: the recorder writes changes to the disk, and
// the follower waits for the plug-in. Their threads wake the client's Sleeper when the answer is
// known, unless the recorder's thread sends the answer itself. All sleepers of a thread that are
// woken before it runs cost one wake-up.
#ifndef QVHOST_SERVER_CLIENT_THREADS_H
#define QVHOST_SERVER_CLIENT_THREADS_H

#include <QvSystem/ThreadSafety.h>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <cstddef>
#include <deque>
#include <memory>
#include <thread>

#include "server/DirectoryReader.h"
#include "server/FrameReader.h"
#include "server/HandlerMemory.h"
#include "server/Subscribers.h"

namespace qv::host {

// Waits for another thread.
class Sleeper {
  public:
    Sleeper() = default;
    virtual ~Sleeper() = default;

    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;

  private:
    friend class ClientThread;

    // Called on the thread of the client.
    virtual void wokenUp() noexcept = 0;

    std::shared_ptr<Sleeper> nextWoken_;
};

// One thread that serves its clients.
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
    ~ClientThread();

    ClientThread(const ClientThread&) = delete;
    ClientThread& operator=(const ClientThread&) = delete;

    std::size_t clients() const { return clients_; }
    asio::io_context& context() { return context_; }

    // Has the thread call sleeper->wokenUp() once. Any thread may call this. A sleeper must not be
    // woken again before it was called.
    void wake(std::shared_ptr<Sleeper> sleeper) noexcept;

    // The clients of the thread that subscribed to the directory.
    Subscribers& subscribers() { return subscribers_; }
    const Subscribers& subscribers() const { return subscribers_; }

    // Returns memory for what the thread reads. Only the thread may use the memory, and only until
    // it turns to another client.
    FrameReader::Shared& readBuffer() { return readBuffer_; }

    // Reads the directory for the thread's clients. Only the thread may use it.
    DirectoryReader& directory() { return directory_; }

    // Tells whether the thread has had a turn since the last call, and asks it to take the next
    // one. Only one thread may call this.
    bool hasRun();

    // Throws std::system_error.
    void start();

    // Waits until the context has no work or, if it is stopped, until no handler runs.
    void join();

  private:
    using WorkGuard = asio::executor_work_guard<asio::io_context::executor_type>;

    void run();
    void wakeUp() noexcept;

    // Declared first: clients that are abandoned leave the count when the context goes.
    std::atomic<std::size_t> clients_ = 0;
    FrameReader::Shared readBuffer_ = {};
    DirectoryReader directory_;
    HandlerMemory wakeMemory_;
    HandlerMemory turnMemory_;
    std::atomic<bool> hasRun_ = true;
    Subscribers subscribers_{pause_};
    asio::io_context context_{1};
    asio::steady_timer pause_{context_};
    WorkGuard work_{context_.get_executor()};
    system::Mutex mutex_;
    // The sleeper that was woken last, with the others behind it.
    std::shared_ptr<Sleeper> woken_ QV_GUARDED_BY(mutex_);
    std::thread thread_;
};

class ClientThreads {
  public:
    // The descriptors of a thread: Asio's epoll, its timer and what wakes it.
    static constexpr std::size_t kDescriptors = 3;

    // Throws std::system_error.
    explicit ClientThreads(std::size_t count) : threads_(count) {}

    // Throws std::system_error. Call abandon() then.
    void start();

    // Call when there are no clients any more.
    void join();

    // Waits for the handlers that run, and for nothing else.
    void abandon();

    // Tells the subscribers of all threads that there are new events. Any thread may call this.
    void tellSubscribers() noexcept;

    // Returns how many subscribers there are.
    std::size_t subscribers() const;

    // Returns the thread with the fewest clients.
    ClientThread& next();

    // Tells whether every thread has had a turn since the last call. Only one thread may call this.
    bool haveRun();

  private:
    std::deque<ClientThread> threads_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_CLIENT_THREADS_H
