// SPDX-License-Identifier: Apache-2.0

#include <QvFrame.h>
#include <QvPlugin.h>
#include <QvText.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

#include "Answer.h"
#include "Connection.h"
#include "Feed.h"
#include "Messages.h"
#include "QvClient.h"
#include "ServiceAddress.h"
#include "Waiting.h"

namespace qv::client {

namespace {

std::string counted(const char* verb, std::size_t count, int32_t first) {
    return std::string("cannot ") + verb +
           (count == 1 ? " service " + std::to_string(first)
                       : ' ' + std::to_string(count) + " services");
}

void checkAddress(const Service& service) {
    const char* const problem = host::problemOfAddress(service.address);
    if (problem != nullptr) {
        throw Error(Error::Kind::Argument, 0,
                    "the address of " + std::to_string(service.id) + ' ' + problem);
    }
}

// Reads the answer to a change of the directory.
ChangeResult changeResultOf(Answer answer) {
    if (answer.result == QV_HOST_ERROR_NOT_KEPT) {
        return {false,
                answer.bytes.empty() ? "the host does not say why" : text::printable(answer.bytes)};
    }
    bytesOf(std::move(answer));
    return {};
}

Error noListOfServices() {
    return brokenAnswer("it is no list of services");
}

// Returns the services of the answer to a request for these identifiers.
std::vector<Service> foundServicesOf(const std::string& answer, std::vector<int32_t> ids) {
    std::optional<std::vector<Service>> services = servicesOf(answer);
    if (!services) {
        throw noListOfServices();
    }
    std::sort(ids.begin(), ids.end());
    auto next = ids.begin();
    for (const Service& service : *services) {
        next = std::lower_bound(next, ids.end(), service.id);
        if (next == ids.end() || *next != service.id) {
            throw brokenAnswer("it has services that nobody asked for, or not in their order");
        }
        next = std::upper_bound(next, ids.end(), service.id);
    }
    return std::move(*services);
}

}  // namespace

Client::Client(const ClientOptions& options) : connection_(std::make_unique<Connection>(options)) {}

Client::Client(const std::string& socketPath, std::chrono::milliseconds timeout)
    : Client(ClientOptions{socketPath, timeout, std::nullopt}) {}

Client::~Client() = default;
Client::Client(Client&& other) noexcept = default;
Client& Client::operator=(Client&& other) noexcept = default;

ChangeResult Client::registerServices(const std::vector<Service>& services,
                                      std::chrono::milliseconds timeout) {
    if (services.empty()) {
        return {};
    }
    return attempt(counted("register", services.size(), services.front().id), [&] {
        std::for_each(services.begin(), services.end(), checkAddress);
        return changeResultOf(connection_->request(QV_COMMAND_REGISTER_SERVICES,
                                                   messageOfServices(services), timeout));
    });
}

ChangeResult Client::unregisterServices(const std::vector<int32_t>& ids,
                                        std::chrono::milliseconds timeout) {
    if (ids.empty()) {
        return {};
    }
    return attempt(counted("unregister", ids.size(), ids.front()), [&] {
        return changeResultOf(
            connection_->request(QV_COMMAND_UNREGISTER_SERVICES, messageOfIds(ids), timeout));
    });
}

std::vector<Service> Client::services(std::chrono::milliseconds timeout) {
    return attempt("cannot list the services", [&] {
        std::optional<std::vector<Service>> services =
            servicesOf(bytesOf(connection_->request(QV_COMMAND_GET_SERVICES, "", timeout)));
        if (!services) {
            throw noListOfServices();
        }
        return std::move(*services);
    });
}

std::optional<std::string> Client::find(int32_t id, std::chrono::milliseconds timeout) {
    std::vector<Service> services = find(std::vector<int32_t>{id}, timeout);
    if (services.empty()) {
        return std::nullopt;
    }
    return std::move(services.front().address);
}

std::vector<Service> Client::find(const std::vector<int32_t>& ids,
                                  std::chrono::milliseconds timeout) {
    if (ids.empty()) {
        return {};
    }
    return attempt(counted("find", ids.size(), ids.front()), [&] {
        return foundServicesOf(
            bytesOf(connection_->request(QV_HOST_COMMAND_FIND, messageOfFind(ids), timeout)), ids);
    });
}

std::string Client::waitFor(int32_t id, std::chrono::milliseconds timeout) {
    return std::move(waitFor(std::vector<int32_t>{id}, timeout).front().address);
}

std::vector<Service> Client::waitFor(const std::vector<int32_t>& ids,
                                     std::chrono::milliseconds timeout) {
    if (ids.empty()) {
        return {};
    }
    return attempt(counted("wait for", ids.size(), ids.front()), [&] {
        return waitForServices(connection_->options(), ids, connection_->deadline(timeout));
    });
}

Subscription Client::subscribe(std::vector<int32_t> ids) const {
    return Subscription(std::make_unique<Feed>(connection_->options(), std::move(ids)));
}

void Client::sync(std::chrono::milliseconds timeout) {
    attempt("cannot bring the plug-in's file up to the directory",
            [&] { bytesOf(connection_->request(QV_HOST_COMMAND_SYNC, "", timeout)); });
}

HostAbilities Client::abilities(std::chrono::milliseconds timeout) {
    return attempt("cannot ask what the host can do", [&]() -> HostAbilities {
        Answer answer = connection_->request(QV_HOST_COMMAND_HELLO, messageOfHello(), timeout);
        if (answer.result == QV_HOST_ERROR_COMMAND) {
            return {};
        }
        std::optional<HostAbilities> abilities = abilitiesOf(bytesOf(std::move(answer)));
        if (!abilities) {
            throw brokenAnswer("it is no hello");
        }
        return std::move(*abilities);
    });
}

HostStatus Client::status(std::chrono::milliseconds timeout) {
    return attempt("cannot ask for the host's status", [&] {
        std::optional<HostStatus> status =
            statusOf(bytesOf(connection_->request(QV_HOST_COMMAND_STATUS, "", timeout)));
        if (!status) {
            throw brokenAnswer("it is no status");
        }
        return std::move(*status);
    });
}

void Client::setDebugLevel(int32_t level, std::chrono::milliseconds timeout) {
    const std::string what = "cannot set the debug level to " + std::to_string(level);
    try {
        bytesOf(connection_->request(QV_COMMAND_SET_DEBUG_LEVEL, messageOfLevel(level), timeout));
    } catch (const Error& error) {
        const bool isRefusedLevel =
            error.kind() == Error::Kind::Result && error.code() == QV_ERROR_ARGUMENT;
        throw Error(error.kind(), error.code(),
                    what + ": " +
                        (isRefusedLevel ? "level must be 0 to 7 (the plug-in refused it with " +
                                              std::to_string(error.code()) + ")"
                                        : error.what()));
    }
}

void Client::ping(std::chrono::milliseconds timeout) {
    attempt("cannot ping the host",
            [&] { bytesOf(connection_->request(QV_HOST_COMMAND_PING, "", timeout)); });
}

}  // namespace qv::client
