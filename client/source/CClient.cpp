// SPDX-License-Identifier: Apache-2.0

// Defines the functions of qv_client.h for clients.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CHandles.h"
#include "CResults.h"
#include "QvClient.h"
#include "qv_client.h"

namespace client = qv::client;

namespace {

// The list that the caller sees, and what it shows.
struct OwnedList : qv_service_list {
    explicit OwnedList(std::vector<client::Service> services)
        : qv_service_list(), owned(std::move(services)) {
        static_cast<qv_service_list&>(*this) = owned.list();
    }

    client::ServicesForC owned;
};

client::ClientOptions optionsOf(const qv_client_options* options) {
    client::ClientOptions result;
    if (options == nullptr) {
        return result;
    }
    // A later version may have more options, after these.
    if (options->size < sizeof(qv_client_options)) {
        throw client::Error(client::Error::Kind::Argument, 0,
                            "the options are not initialised with QV_CLIENT_OPTIONS");
    }
    if (options->socket_path != nullptr) {
        result.socketPath = options->socket_path;
    }
    if (options->timeout != QV_CLIENT_OWN_TIMEOUT) {
        result.timeout = client::timeoutOf(options->timeout);
    }
    if (options->host_user >= 0) {
        result.hostUser = static_cast<uid_t>(options->host_user);
    }
    return result;
}

int reportChange(qv_client_error* error, const client::ChangeResult& change) {
    return change.isKept ? client::report(error, QV_CLIENT_OK, 0, "")
                         : client::report(error, QV_CLIENT_NOT_KEPT, 0, change.reason.c_str());
}

// Stores the services that the action returns.
template <typename Action>
int storeList(qv_service_list** services, qv_client_error* error, Action action) noexcept {
    *services = nullptr;
    return client::guarded(error, [&] {
        *services = std::make_unique<OwnedList>(action()).release();
        return client::report(error, QV_CLIENT_OK, 0, "");
    });
}

}  // namespace

int qv_client_version(void) {
    return QV_CLIENT_VERSION;
}

qv_client* qv_client_create(const qv_client_options* options, qv_client_error* error) {
    qv_client* created = nullptr;
    client::guarded(error, [&] {
        created = new qv_client{client::Client(optionsOf(options))};
        return client::report(error, QV_CLIENT_OK, 0, "");
    });
    return created;
}

void qv_client_destroy(qv_client* client) {
    delete client;
}

int qv_client_register(qv_client* client, const qv_service* services, size_t count, int timeout,
                       qv_client_error* error) {
    return client::guarded(error, [&] {
        std::vector<client::Service> copies;
        for (std::size_t i = 0; i < count; ++i) {
            const char* const address = services[i].address;
            copies.push_back({services[i].id, address == nullptr ? "" : address});
        }
        return reportChange(error,
                            client->client.registerServices(copies, client::timeoutOf(timeout)));
    });
}

int qv_client_unregister(qv_client* client, const int32_t* ids, size_t count, int timeout,
                         qv_client_error* error) {
    return client::guarded(error, [&] {
        return reportChange(error, client->client.unregisterServices(client::idsOf(ids, count),
                                                                     client::timeoutOf(timeout)));
    });
}

int qv_client_list(qv_client* client, qv_service_list** services, int timeout,
                   qv_client_error* error) {
    return storeList(services, error,
                     [&] { return client->client.services(client::timeoutOf(timeout)); });
}

int qv_client_find(qv_client* client, const int32_t* ids, size_t count, qv_service_list** services,
                   int timeout, qv_client_error* error) {
    return storeList(services, error, [&] {
        return client->client.find(client::idsOf(ids, count), client::timeoutOf(timeout));
    });
}

int qv_client_wait(qv_client* client, const int32_t* ids, size_t count, qv_service_list** services,
                   int timeout, qv_client_error* error) {
    return storeList(services, error, [&] {
        return client->client.waitFor(client::idsOf(ids, count), client::timeoutOf(timeout));
    });
}

int qv_client_sync(qv_client* client, int timeout, qv_client_error* error) {
    return client::guarded(error, [&] {
        client->client.sync(client::timeoutOf(timeout));
        return client::report(error, QV_CLIENT_OK, 0, "");
    });
}

int qv_client_ping(qv_client* client, int timeout, qv_client_error* error) {
    return client::guarded(error, [&] {
        client->client.ping(client::timeoutOf(timeout));
        return client::report(error, QV_CLIENT_OK, 0, "");
    });
}

void qv_service_list_destroy(qv_service_list* services) {
    delete static_cast<OwnedList*>(services);
}
