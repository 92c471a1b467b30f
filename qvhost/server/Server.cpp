#include "server/Server.h"

#include <QvText.h>
#include <fmt/format.h>

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

#include "StandardStreams.h"
#include "server/Acceptor.h"
#include "server/ClientList.h"
#include "server/ClientThreads.h"
#include "server/Conversation.h"
#include "server/DescriptorLimit.h"
#include "server/ListeningSocket.h"
#include "server/PluginService.h"
#include "server/ServiceManager.h"

namespace qv::host {

namespace {

using Milliseconds = std::chrono::milliseconds;

// The descriptors besides those of the clients and their threads: the socket, its lock, the
// plug-in's files, and some spare ones.
constexpr std::size_t kOtherDescriptors = 64;

std::unique_ptr<ListeningSocket> takeSocket(const ServerSettings& settings) {
    const std::optional<int> passed = ServiceManager::passedSocket();
    return passed
               ? std::make_unique<ListeningSocket>(*passed)
               : std::make_unique<ListeningSocket>(settings.socket, settings.access.forOwnerOnly());
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

}  // namespace

// Executes the clients' requests on threads of their own, all of which may be inside the plug-in.
// The thread that calls run() handles signals, times and new clients, which so need not wait.
class Server::Work {
  public:
    Work(Plugin& plugin, ServerSettings settings, std::function<void()> initialize)
        : settings_(std::move(settings)),
          descriptorLimit_(raiseDescriptorLimit()),
          service_(plugin, std::move(initialize)),
          threads_(settings_.threads),
          // A signal before this line ends the process, which has no socket to leave behind.
          stopSignals_(control_, SIGTERM, SIGINT),
          reloadSignals_(control_, SIGHUP),
          sweepTimer_(control_),
          stopTimer_(control_),
          socket_(takeSocket(settings_)) {}

    void run();

  private:
    enum class Phase { Serving, Stopping, Dropping };

    void awaitStop();
    void stopFurther();
    void stop();
    void awaitReload();
    void reload();
    void sweep();
    std::string status() const;

    const ServerSettings settings_;
    // Comes before the threads open their descriptors.
    const std::size_t descriptorLimit_;
    PluginService service_;
    ClientList clients_;
    // Clients that are left use the members above, which must outlive them.
    ClientThreads threads_;
    asio::io_context control_{1};
    asio::signal_set stopSignals_;
    asio::signal_set reloadSignals_;
    asio::steady_timer sweepTimer_;
    asio::steady_timer stopTimer_;
    std::unique_ptr<ListeningSocket> socket_;
    std::optional<Acceptor> acceptor_;
    Phase phase_ = Phase::Serving;
    std::string lastStatus_;
};

void Server::Work::run() {
    if (descriptorLimit_ < settings_.limits.maxClients +
                               settings_.threads * ClientThreads::kDescriptors +
                               kOtherDescriptors) {
        reportError(
            fmt::format("warning: the limit of open files lets fewer than {} clients in at once",
                        settings_.limits.maxClients));
    }
    service_.initialize();
    socket_->listen();
    acceptor_.emplace(control_, threads_, socket_->release(), clients_, settings_,
                      [this](ClientSocket socket, ClientThread& thread) {
                          serveClient(std::move(socket), threads_, thread, clients_, service_,
                                      settings_);
                      });
    try {
        threads_.start();
        acceptor_->start();
        awaitStop();
        awaitReload();
        reportError(fmt::format("serving on {}", socket_->path()));
        lastStatus_ = status();
        ServiceManager::ready(lastStatus_);
        sweep();
        control_.run();
    } catch (...) {
        threads_.abandon();
        // The remaining clients go after the object that would be told.
        clients_.forget();
        throw;
    }
    threads_.join();
    service_.finalize();
}

void Server::Work::awaitStop() {
    stopSignals_.async_wait([this](const asio::error_code& error, int /*signal*/) {
        if (!error) {
            awaitStop();
            stopFurther();
        }
    });
}

// Goes one step further with each signal, and each time that is over.
void Server::Work::stopFurther() {
    switch (phase_) {
        case Phase::Serving:
            phase_ = Phase::Stopping;
            stop();
            break;
        case Phase::Stopping:
            phase_ = Phase::Dropping;
            clients_.drop();
            break;
        case Phase::Dropping:
            // Finalising the plug-in during a request would be worse than not finalising it.
            reportError("the plug-in does not come back from a request; ending without it");
            socket_->remove();
            std::_Exit(EXIT_FAILURE);
    }
    stopTimer_.expires_after(settings_.stopTimeout);
    stopTimer_.async_wait([this](const asio::error_code& error) {
        if (!error) {
            stopFurther();
        }
    });
}

void Server::Work::stop() {
    ServiceManager::stopping();
    sweepTimer_.cancel();
    acceptor_->stop(socket_->own());
    clients_.stop([this] { asio::post(control_, [this] { control_.stop(); }); });
}

void Server::Work::awaitReload() {
    reloadSignals_.async_wait([this](const asio::error_code& error, int /*signal*/) {
        if (error) {
            return;
        }
        if (phase_ != Phase::Serving) {
            awaitReload();
            return;
        }
        ServiceManager::reloading();
        service_.closeForReload([this] { asio::post(control_, [this] { reload(); }); });
    });
}

void Server::Work::reload() {
    for (const std::string& problem : service_.reload()) {
        reportError(problem);
    }
    if (phase_ == Phase::Serving) {
        lastStatus_ = status();
        ServiceManager::ready(lastStatus_);
    }
    awaitReload();
}

void Server::Work::sweep() {
    clients_.sweep(ConnectedClient::Clock::now());
    std::string now = status();
    if (now != lastStatus_) {
        ServiceManager::status(now);
        lastStatus_ = std::move(now);
    }
    sweepTimer_.expires_after(sweepInterval(settings_));
    sweepTimer_.async_wait([this](const asio::error_code& error) {
        if (!error && phase_ == Phase::Serving) {
            sweep();
        }
    });
}

std::string Server::Work::status() const {
    if (!service_.works()) {
        return "the plug-in failed to start again; waiting for SIGHUP";
    }
    return fmt::format("serving on {}, clients: {}", text::escaped(socket_->path()),
                       clients_.count());
}

Server::Server(Plugin& plugin, ServerSettings settings, std::function<void()> initialize)
    : work_(std::make_unique<Work>(plugin, std::move(settings), std::move(initialize))) {}

Server::~Server() = default;

void Server::run() {
    work_->run();
}

}  // namespace qv::host
