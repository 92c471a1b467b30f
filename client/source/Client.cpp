#include <QvFrame.h>
#include <QvPlugin.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

#include "Connection.h"
#include "Messages.h"
#include "QvClient.h"
#include "ServiceAddress.h"

namespace qv::client {

namespace {

// Runs the action. Puts `what` in front of the text of an Error that the action throws.
template <typename Action>
auto attempt(const std::string& what, Action action) -> decltype(action()) {
    try {
        return action();
    } catch (const Error& error) {
        throw Error(error.kind(), error.code(), what + ": " + error.what());
    }
}

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
                answer.bytes.empty() ? "the host does not say why" : std::move(answer.bytes)};
    }
    bytesOf(std::move(answer));
    return {};
}

}  // namespace

Client::Client(const std::string& socketPath, std::chrono::milliseconds timeout)
    : connection_(std::make_unique<Connection>(socketPath, timeout)) {}

Client::~Client() = default;

ChangeResult Client::registerServices(const std::vector<Service>& services) {
    if (services.empty()) {
        return {};
    }
    return attempt(counted("register", services.size(), services.front().id), [&] {
        std::for_each(services.begin(), services.end(), checkAddress);
        return changeResultOf(
            connection_->request(QV_COMMAND_REGISTER_SERVICES, messageOfServices(services)));
    });
}

ChangeResult Client::unregisterServices(const std::vector<int32_t>& ids) {
    if (ids.empty()) {
        return {};
    }
    return attempt(counted("unregister", ids.size(), ids.front()), [&] {
        return changeResultOf(
            connection_->request(QV_COMMAND_UNREGISTER_SERVICES, messageOfIds(ids)));
    });
}

std::vector<Service> Client::services() {
    return attempt("cannot list the services", [&] {
        std::optional<std::vector<Service>> services =
            servicesOf(bytesOf(connection_->request(QV_COMMAND_GET_SERVICES, "")));
        if (!services) {
            throw Error(Error::Kind::BrokenAnswer, 0,
                        "the host's answer is broken: it is no list of services");
        }
        return std::move(*services);
    });
}

void Client::sync() {
    attempt("cannot bring the plug-in's file up to the directory",
            [&] { bytesOf(connection_->request(QV_HOST_COMMAND_SYNC, "")); });
}

HostStatus Client::status() {
    return attempt("cannot ask for the host's status", [&] {
        std::optional<HostStatus> status =
            statusOf(bytesOf(connection_->request(QV_HOST_COMMAND_STATUS, "")));
        if (!status) {
            throw Error(Error::Kind::BrokenAnswer, 0,
                        "the host's answer is broken: it is no status");
        }
        return std::move(*status);
    });
}

void Client::setDebugLevel(int32_t level) {
    const std::string what = "cannot set the debug level to " + std::to_string(level);
    try {
        bytesOf(connection_->request(QV_COMMAND_SET_DEBUG_LEVEL, messageOfLevel(level)));
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

void Client::ping() {
    attempt("cannot ping the host",
            [&] { bytesOf(connection_->request(QV_HOST_COMMAND_PING, "")); });
}

}  // namespace qv::client
