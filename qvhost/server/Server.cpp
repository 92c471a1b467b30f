// SPDX-License-Identifier: Apache-2.0

#include "server/Server.h"

#include <QvText.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "StandardStreams.h"
#include "server/Acceptor.h"
#include "server/Budget.h"
#include "server/ClientList.h"
#include "server/ClientThreads.h"
#include "server/Commands.h"
#include "server/Conversation.h"
#include "server/Counts.h"
#include "server/DescriptorLimit.h"
#include "server/DirectoryLock.h"
#include "server/Follower.h"
#include "server/HandlerMemory.h"
#include "server/HeapMemory.h"
#include "server/ListeningSocket.h"
#include "server/Recorder.h"
#include "server/ServiceManager.h"
#include "server/Status.h"
#include "server/StoredFile.h"

namespace qv::host {

namespace {

using Milliseconds = std::chrono::milliseconds;

std::unique_ptr<ListeningSocket> takeSocket(const ServerSettings& settings) {
    const std::optional<int> passed = ServiceManager::passedSocket();
    return passed
               ? std::make_unique<ListeningSocket>(*passed)
               : std::make_unique<ListeningSocket>(settings.socket, settings.access.forOwnerOnly());
}

// Returns the settings with as many clients as the limit of open files allows.
ServerSettings withinDescriptors(ServerSettings settings) {
    const std::size_t clients =
        clientsWithin(raiseDescriptorLimit(), settings.threads, settings.limits.maxClients);
    if (clients < settings.limits.maxClients) {
        writeJournal(fmt::format("warning: the limit of open files allows {} clients, not {}",
                                 clients, settings.limits.maxClients));
        settings.limits.maxClients = clients;
    }
    return settings;
}

// Returns how often to look for slow clients: no bound is exceeded by more than a quarter, or by a
// second.
Milliseconds sweepInterval(const ServerSettings& settings) {
    constexpr Milliseconds kShortest(10);
    constexpr Milliseconds kLongest(1000);
    Milliseconds interval = kLongest;
    for (const Milliseconds bound : {settings.limits.idleTimeout, settings.limits.frameTimeout}) {
        if (bound.count() != 0) {
            interval = std::min(interval, bound / 4);
        }
    }
    return std::max(interval, kShortest);
}

// So many bytes that clients gave back are worth the time that giving them to the system takes.
constexpr std::size_t kWorthGivingBack = std::size_t{8} * 1024 * 1024;

}  // namespace

// Requests are answered on threads of their own. The thread that calls run() handles signals, times
// and new clients, which so need not wait.
class Server::Work {
  public:
    Work(Plugin& plugin, ServerSettings settings, std::function<void()> initialize)
        : settings_(withinDescriptors(std::move(settings))),
          lock_(settings_.configuration, settings_.socket),
          clients_(settings_.limits.maxClients, geteuid()),
          budget_(settings_.limits.maxMemory, geteuid()),
          threads_(settings_.threads),
          recorder_(recordPathOf(settings_.configuration), &writeJournal),
          follower_(plugin, StoredFile(settings_.configuration), recorder_, std::move(initialize),
                    &writeJournal),
          commands_(
              recorder_, follower_, counts_, [this] { return serialised(status(), counts_); },
              settings_.version),
          // A signal before this line ends the process, which has no socket to leave behind.
          stopSignals_(control_, SIGTERM, SIGINT),
          reloadSignals_(control_, SIGHUP),
          sweepTimer_(control_),
          stopTimer_(control_),
          socket_(takeSocket(settings_)) {}

    ~Work();

    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    void run();

  private:
    enum class Phase { Serving, Stopping, Dropping };

    void serve();
    void awaitStop();
    void awaitStopTime();
    void stopFurther();
    void stop();
    void end();
    void awaitReload();
    void reload();
    void reloaded(const std::string& problem);
    void sweep();
    void lookAround();
    Status status() const;
    std::string statusLine() const;

    const ServerSettings settings_;
    const std::chrono::system_clock::time_point startTime_ = std::chrono::system_clock::now();
    // Comes before everything that touches the files of the configuration.
    const DirectoryLock lock_;
    // A client uses the following until it has gone. Recorder and follower may be the last that
    // hold a client, so they go first.
    Counts counts_;
    ClientList clients_;
    Budget budget_;
    ClientThreads threads_;
    Recorder recorder_;
    Follower follower_;
    Commands commands_;
    // Signals and times wait in memory of their own, because a shortage must not end the host.
    HandlerMemory stopSignalMemory_;
    HandlerMemory reloadSignalMemory_;
    HandlerMemory sweepMemory_;
    HandlerMemory stopTimeMemory_;
    HandlerMemory emptiedMemory_;
    asio::io_context control_{1};
    asio::signal_set stopSignals_;
    asio::signal_set reloadSignals_;
    asio::steady_timer sweepTimer_;
    asio::steady_timer stopTimer_;
    std::unique_ptr<ListeningSocket> socket_;
    std::optional<Acceptor> acceptor_;
    std::thread ending_;  // lets the file catch up while signals and times are still handled
    Phase phase_ = Phase::Serving;
    uint64_t saves_ = 0;  // at the last sweep
    bool sweepFails_ = false;
    std::string lastStatus_;
};

Server::Work::~Work() {
    if (ending_.joinable()) {
        ending_.join();
    }
}

void Server::Work::run() {
    giveBackLargePieces();
    // The times of the sweep and of the end.
    setTimersAside(control_, 2);
    recorder_.onPublished([this] {
        threads_.tellSubscribers();
        follower_.published();
    });
    recorder_.start();
    follower_.start();
    socket_->listen();
    acceptor_.emplace(control_, threads_, socket_->release(), clients_, counts_, settings_,
                      [this](ClientSocket socket, uid_t user, ClientThread& thread) {
                          serveClient(
                              std::move(socket), user, thread,
                              {recorder_, commands_, clients_, budget_, counts_, settings_.limits});
                      });
    try {
        serve();
    } catch (...) {
        threads_.abandon();
        budget_.abandon();
        // Otherwise the recorder's thread would serve clients while what it uses is destroyed.
        clients_.drop();
        if (ending_.joinable()) {
            ending_.join();
        }
        follower_.stop();
        recorder_.stop();
        // The remaining clients go after the object that would be told.
        clients_.forget();
        throw;
    }
    threads_.join();
}

void Server::Work::serve() {
    threads_.start();
    acceptor_->start();
    awaitStop();
    awaitReload();
    writeJournal(fmt::format("serving on {}", socket_->path()));
    lastStatus_ = statusLine();
    ServiceManager::ready(lastStatus_);
    sweep();
    control_.run();
}

void Server::Work::awaitStop() {
    stopSignals_.async_wait(
        stopSignalMemory_.keep([this](const asio::error_code& error, int /*signal*/) {
            if (!error) {
                awaitStop();
                stopFurther();
            }
        }));
}

// Waits until the time is over. A signal may set another time meanwhile, which interrupts the wait.
void Server::Work::awaitStopTime() {
    stopTimer_.async_wait(stopTimeMemory_.keep([this](const asio::error_code& /*error*/) {
        if (stopTimer_.expiry() <= asio::steady_timer::clock_type::now()) {
            stopFurther();
        }
        awaitStopTime();
    }));
}

// Goes one step further with each signal, and each time that is over.
void Server::Work::stopFurther() {
    stopTimer_.expires_after(settings_.stopTimeout);
    switch (phase_) {
        case Phase::Serving:
            phase_ = Phase::Stopping;
            awaitStopTime();
            stop();
            break;
        case Phase::Stopping:
            phase_ = Phase::Dropping;
            clients_.drop();
            break;
        case Phase::Dropping:
            // Finalising the plug-in during a call would be worse than not finalising it. The
            // record holds what was acknowledged.
            writeJournal("the plug-in does not come back from a call; ending without it");
            socket_->remove();
            std::_Exit(EXIT_FAILURE);
    }
}

void Server::Work::stop() {
    ServiceManager::stopping();
    sweepTimer_.cancel();
    acceptor_->stop(socket_->own());
    // The last client tells this when it goes, and nothing may fail then.
    clients_.stop([this] { asio::post(control_, emptiedMemory_.keep([this] { end(); })); });
}

// Ends plug-in and record when the last client has gone. The file may be on a slow disk, so another
// thread waits for it.
void Server::Work::end() {
    ending_ = std::thread([this] {
        follower_.stop();
        recorder_.stop();
        control_.stop();
    });
}

void Server::Work::awaitReload() {
    reloadSignals_.async_wait(
        reloadSignalMemory_.keep([this](const asio::error_code& error, int /*signal*/) {
            if (!error) {
                awaitReload();
                reload();
            }
        }));
}

void Server::Work::reload() {
    if (phase_ != Phase::Serving) {
        return;
    }
    try {
        follower_.reload([this](const std::string& problem) {
            try {
                asio::post(control_, [this, problem] { reloaded(problem); });
            } catch (const std::bad_alloc&) {
                writeJournal("reloaded; there is no memory to tell the service manager");
            }
        });
        // The follower's answer waits for this thread, so the manager hears of the end later.
        ServiceManager::reloading();
    } catch (const std::bad_alloc&) {
        writeJournal("cannot reload: out of memory");
    }
}

void Server::Work::reloaded(const std::string& problem) {
    if (!problem.empty()) {
        writeJournal(problem);
    }
    if (phase_ == Phase::Serving) {
        lastStatus_ = statusLine();
        ServiceManager::ready(lastStatus_);
    }
}

void Server::Work::sweep() {
    try {
        lookAround();
        sweepFails_ = false;
    } catch (const std::exception& error) {
        // Reports this once, not every second.
        if (!std::exchange(sweepFails_, true)) {
            writeJournal(error.what());
        }
    }
    sweepTimer_.expires_after(sweepInterval(settings_));
    sweepTimer_.async_wait(sweepMemory_.keep([this](const asio::error_code& error) {
        if (!error && phase_ == Phase::Serving) {
            sweep();
        }
    }));
}

void Server::Work::lookAround() {
    clients_.sweep(ConnectedClient::Clock::now());
    // A slow disk keeps recorder and follower, but not the threads that answer clients.
    if (threads_.haveRun()) {
        ServiceManager::isAlive();
    }
    const uint64_t saves = follower_.statistics().saves;
    // To save a directory takes several times its size for a moment.
    if (budget_.takeReturned() >= kWorthGivingBack || saves != std::exchange(saves_, saves)) {
        giveBackFreeMemory();
    }
    std::string now = statusLine();
    if (now != lastStatus_) {
        ServiceManager::status(now);
        lastStatus_ = std::move(now);
    }
    if (system::Descriptor socket = socket_->restore()) {
        writeJournal(fmt::format("{} was gone and is there again", socket_->path()));
        acceptor_->replace(std::move(socket));
    }
}

Status Server::Work::status() const {
    Status status;
    status.version = settings_.version;
    status.startTime = startTime_;
    status.filePath = settings_.configuration;
    status.commits = recorder_.statistics();
    status.file = follower_.statistics();
    // Comes last: the directory is never older than its file.
    status.state = recorder_.state();
    status.clients = clients_.count();
    status.clientLimit = settings_.limits.maxClients;
    status.subscribers = threads_.subscribers();
    status.memory = budget_.held();
    status.memoryLimit = settings_.limits.maxMemory;
    return status;
}

std::string Server::Work::statusLine() const {
    return text::escaped(fmt::format("serving on {}, {}", socket_->path(), summary(status())));
}

Server::Server(Plugin& plugin, ServerSettings settings, std::function<void()> initialize)
    : work_(std::make_unique<Work>(plugin, std::move(settings), std::move(initialize))) {}

Server::~Server() = default;

void Server::run() {
    work_->run();
}

}  // namespace qv::host
