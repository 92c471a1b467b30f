// SPDX-License-Identifier: Apache-2.0

// What tests of the client library do with a client and a ScriptedServer:
//
//     ScriptedServer server({answering(QV_OK, listOf({{1, "a"}}))});
//     Client client(server.path());
//     const Failure failure = failureOf([&] { client.ping(); });
#ifndef QV_TESTS_CLIENT_CALLS_H
#define QV_TESTS_CLIENT_CALLS_H

#include <QvClient.h>
#include <QvPlugin.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ServiceAddress.h"
#include "client/ScriptedServer.h"
#include "namingService.pb.h"

namespace qv::tests {

struct Failure {
    client::Error::Kind kind;
    int32_t code;
    std::string text;
};

// Returns the error of an action that fails.
inline Failure failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const client::Error& error) {
        return {error.kind(), error.code(), error.what()};
    }
    ADD_FAILURE() << "succeeded";
    return {};
}

// Returns the answer to a listing.
inline std::string listOf(const std::vector<client::Service>& services) {
    qor::kevra::ServiceInfoArray message;
    for (const client::Service& service : services) {
        qor::kevra::ServiceInfo* const info = message.add_services();
        info->set_id(service.id);
        info->set_address(service.address);
    }
    return message.SerializeAsString();
}

// Returns services of 8 MiB.
inline std::vector<client::Service> moreThanASocketHolds() {
    constexpr std::size_t kCount = (std::size_t{8} << 20) / host::kLongestAddress;
    std::vector<client::Service> services;
    for (std::size_t i = 0; i < kCount; ++i) {
        services.push_back({static_cast<int32_t>(i), std::string(host::kLongestAddress, 'x')});
    }
    return services;
}

// Returns a function that answers every request like this until the client closes.
inline ScriptedServer::Script answering(uint32_t result, const std::string& bytes) {
    return [=](Peer& peer) {
        for (Request request = peer.receive(); request.number != 0; request = peer.receive()) {
            peer.answer(result, bytes, request.number);
        }
    };
}

// Returns a function that records the requests and answers each with success.
inline ScriptedServer::Script noting(std::vector<Request>& requests) {
    return [&requests](Peer& peer) {
        for (Request request = peer.receive(); request.number != 0; request = peer.receive()) {
            requests.push_back(request);
            peer.answer(QV_OK, "", request.number);
        }
    };
}

}  // namespace qv::tests

#endif  // QV_TESTS_CLIENT_CALLS_H
