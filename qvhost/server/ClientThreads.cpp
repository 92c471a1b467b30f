// SPDX-License-Identifier: Apache-2.0

#include "server/ClientThreads.h"

#include <algorithm>
#include <asio/post.hpp>
#include <cstdio>
#include <exception>
#include <numeric>
#include <system_error>
#include <utility>

#include "StandardStreams.h"
#include "server/ClientSocket.h"

namespace qv::host {

// Opens what a context opens for its first socket. A shortage is better met now than when a client
// comes.
ClientThread::ClientThread() {
    try {
        const ClientSocket first(context_);
        setTimersAside(context_, 1);
        context_.poll();
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "cannot make a thread for clients");
    }
}

// Lets go of those who were woken too late, one by one: each of them holds the next one.
ClientThread::~ClientThread() {
    const system::MutexLock lock(mutex_);
    while (woken_ != nullptr) {
        std::shared_ptr<Sleeper> next = std::move(woken_->nextWoken_);
        woken_ = std::move(next);
    }
}

void ClientThread::start() {
    thread_ = std::thread([this] { run(); });
}

// Runs the context until it is stopped or has no work. Before the thread sleeps, it lets others
// run: waking it costs several times as much as reading what clients send meanwhile. A handler
// belongs to one client, whose connection goes with it.
void ClientThread::run() {
    for (;;) {
        try {
            do {
                do {
                    std::this_thread::yield();
                } while (context_.poll() != 0);
                directory_.release();
            } while (context_.run_one() != 0);
            return;
        } catch (const std::exception& error) {
            char line[256];
            std::snprintf(line, sizeof line, "a client was lost: %s", error.what());
            writeJournal(line);
        }
    }
}

void ClientThread::join() {
    work_.reset();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void ClientThread::wake(std::shared_ptr<Sleeper> sleeper) noexcept {
    bool isFirst = false;
    {
        const system::MutexLock lock(mutex_);
        isFirst = woken_ == nullptr;
        sleeper->nextWoken_ = std::move(woken_);
        woken_ = std::move(sleeper);
    }
    if (isFirst) {
        // The memory is free: the handler takes all sleepers after it has given the memory back.
        asio::post(context_, wakeMemory_.keep([this] { wakeUp(); }));
    }
}

void ClientThread::wakeUp() noexcept {
    std::shared_ptr<Sleeper> last;
    {
        const system::MutexLock lock(mutex_);
        last = std::move(woken_);
    }
    // The first one that was woken comes first.
    std::shared_ptr<Sleeper> first;
    while (last != nullptr) {
        std::shared_ptr<Sleeper> previous = std::move(last->nextWoken_);
        last->nextWoken_ = std::move(first);
        first = std::exchange(last, std::move(previous));
    }
    while (first != nullptr) {
        const std::shared_ptr<Sleeper> sleeper = std::exchange(first, std::move(first->nextWoken_));
        sleeper->wokenUp();
    }
}

bool ClientThread::hasRun() {
    if (!hasRun_.exchange(false)) {
        return false;
    }
    asio::post(context_, turnMemory_.keep([this] { hasRun_ = true; }));
    return true;
}

void ClientThreads::start() {
    for (ClientThread& thread : threads_) {
        thread.start();
    }
}

void ClientThreads::join() {
    for (ClientThread& thread : threads_) {
        thread.join();
    }
}

void ClientThreads::abandon() {
    for (ClientThread& thread : threads_) {
        thread.context().stop();
    }
    join();
}

void ClientThreads::tellSubscribers() noexcept {
    for (ClientThread& thread : threads_) {
        thread.subscribers().tell();
    }
}

std::size_t ClientThreads::subscribers() const {
    return std::accumulate(threads_.begin(), threads_.end(), std::size_t{0},
                           [](std::size_t sum, const ClientThread& thread) {
                               return sum + thread.subscribers().count();
                           });
}

ClientThread& ClientThreads::next() {
    return *std::min_element(threads_.begin(), threads_.end(),
                             [](const ClientThread& one, const ClientThread& other) {
                                 return one.clients() < other.clients();
                             });
}

bool ClientThreads::haveRun() {
    bool all = true;
    for (ClientThread& thread : threads_) {
        all = thread.hasRun() && all;
    }
    return all;
}

}  // namespace qv::host
