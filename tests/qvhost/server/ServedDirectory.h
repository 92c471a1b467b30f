// SPDX-License-Identifier: Apache-2.0

// Serves clients in this process over pairs of connected sockets. The directory, its record and its
// file are those of a resident host.
//
//     ServedDirectory served;
//     served.start();
//     RawClient client = served.connect();
#ifndef QV_TESTS_QVHOST_SERVER_SERVED_DIRECTORY_H
#define QV_TESTS_QVHOST_SERVER_SERVED_DIRECTORY_H

#include <QvSystem/Descriptor.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "qvhost/RawClient.h"
#include "qvhost/server/FollowedHost.h"
#include "server/Budget.h"
#include "server/ClientLimits.h"
#include "server/ClientList.h"
#include "server/ClientSocket.h"
#include "server/ClientThreads.h"
#include "server/Commands.h"
#include "server/Conversation.h"
#include "server/Counts.h"
#include "server/Follower.h"
#include "server/Pace.h"
#include "server/Plugin.h"

namespace qv::tests {

class ServedDirectory {
  public:
    ServedDirectory() { writeFile(host_.path(), document("")); }

    ~ServedDirectory() {
        if (clients_) {
            if (!threadsRun_) {
                threads_->start();
            }
            stop().wait();
            threads_->join();
            follower_->stop();
        }
        host_.closeRecord();
    }

    ServedDirectory(const ServedDirectory&) = delete;
    ServedDirectory& operator=(const ServedDirectory&) = delete;

    // Serves as the limits say. If the threads do not run, the test runs their contexts.
    void start(bool threadsRun = true) {
        threads_.emplace(1);
        host::Recorder& recorder = host_.openRecord([this] {
            threads_->tellSubscribers();
            follower_->published();
            if (published) {
                published(this->recorder().state()->snapshot->revision());
            }
        });
        follower_.emplace(
            plugin_, host::StoredFile(host_.path()), recorder, [this] { plugin_.initialize(); },
            host_.report(), pace);
        follower_->start();
        clients_.emplace(limits.maxClients, ::geteuid());
        budget_.emplace(limits.maxMemory, ::geteuid());
        commands_.emplace(
            recorder, *follower_, counts, [] { return std::string("status"); }, "1.2");
        threadsRun_ = threadsRun;
        if (threadsRun) {
            threads_->start();
        }
    }

    host::RawClient connect(uid_t user = ::geteuid()) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        host::ClientThread& thread = threads_->next();
        host::ClientSocket socket(thread.context(), asio::local::stream_protocol(), ends[0]);
        host::serveClient(std::move(socket), user, thread,
                          {recorder(), *commands_, *clients_, *budget_, counts, limits});
        return host::RawClient(system::Descriptor(ends[1]));
    }

    // Receives nothing more from any client. The future is ready when all clients have gone.
    std::future<void> stop() {
        auto emptied = std::make_shared<std::promise<void>>();
        clients_->stop([emptied] { emptied->set_value(); });
        return emptied->get_future();
    }

    // Lets the clock of the clients' bounds go on by this time.
    void passTime(std::chrono::hours time) {
        clients_->sweep(host::ConnectedClient::Clock::now() + time);
    }

    uint64_t refusals(uint32_t code) const {
        uint64_t found = 0;
        counts.forEachRefusal(
            [&](uint32_t each, uint64_t number) { found = each == code ? number : found; });
        return found;
    }

    std::size_t subscribers() const { return threads_->subscribers(); }
    Model directory() const { return host_.directory(); }

    host::ClientList& clients() { return *clients_; }
    host::Budget& budget() { return *budget_; }
    host::Follower& follower() { return *follower_; }
    host::Recorder& recorder() { return host_.recorder(); }
    host::ClientThread& thread() { return threads_->next(); }
    std::string path() const { return host_.path(); }

    // Set these before the start.
    host::ClientLimits limits;
    host::Pace::Settings pace = {std::chrono::milliseconds(0), 0, std::chrono::hours(1),
                                 std::chrono::hours(1)};
    // The recorder's thread calls it with the newest revision before it answers the changes.
    std::function<void(int64_t)> published;
    host::Counts counts;

  private:
    FollowedHost host_;
    bool threadsRun_ = false;
    host::Plugin plugin_{QV_PLUGIN_FILE};
    std::optional<host::ClientList> clients_;
    std::optional<host::Budget> budget_;
    std::optional<host::ClientThreads> threads_;
    std::optional<host::Follower> follower_;
    std::optional<host::Commands> commands_;
};

}  // namespace qv::tests

#endif  // QV_TESTS_QVHOST_SERVER_SERVED_DIRECTORY_H
