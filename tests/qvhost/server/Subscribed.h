// SPDX-License-Identifier: Apache-2.0

// Subscribes to a host, and follows the directory as a subscriber does.
#ifndef QV_TESTS_QVHOST_SERVER_SUBSCRIBED_H
#define QV_TESTS_QVHOST_SERVER_SUBSCRIBED_H

#include <QvFrame.h>
#include <QvPlugin.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "QvHost.pb.h"
#include "qvhost/RawClient.h"
#include "support/LoadedPlugin.h"

namespace qv::tests {

constexpr std::uint32_t kNumber = 4712;  // of the request that subscribes

// Returns the input of a request, for these services or for all.
inline std::string subscription(const std::vector<std::int32_t>& ids = {}) {
    host::wire::HostSubscription message;
    for (const std::int32_t id : ids) {
        message.add_ids(id);
    }
    return message.SerializeAsString();
}

// The same of a client that received this event last.
inline std::string subscription(const std::vector<std::int32_t>& ids, std::uint64_t epoch,
                                std::int64_t revision) {
    host::wire::HostSubscription message;
    message.set_epoch(epoch);
    message.set_revision(revision);
    return subscription(ids) + message.SerializeAsString();
}

inline void subscribe(const host::RawClient& client, const std::string& input) {
    ASSERT_TRUE(client.send(host::frame(QV_HOST_COMMAND_SUBSCRIBE, kNumber, input)));
}

// Returns the next event.
inline host::wire::HostEvent next(const host::RawClient& client) {
    host::wire::HostEvent event;
    const std::optional<host::RawAnswer> answer = client.receive();
    if (!answer) {
        ADD_FAILURE() << "the subscription ended";
        return event;
    }
    EXPECT_EQ(answer->code, std::uint32_t{QV_OK}) << answer->bytes;
    EXPECT_EQ(answer->number, kNumber);
    EXPECT_TRUE(event.ParseFromString(answer->bytes));
    return event;
}

template <typename List>
Services servicesOf(const List& list) {
    Services services;
    for (const host::wire::HostService& service : list) {
        services.emplace_back(service.id(), service.address());
    }
    return services;
}

// Holds the directory as the events tell it. Each event must be a snapshot or follow the last one.
class Subscribed {
  public:
    explicit Subscribed(const host::RawClient& client) : client_(client) {}

    // Receives events until one has this revision.
    void receiveUntil(std::int64_t revision) {
        while (revision_ < revision && !testing::Test::HasFailure()) {
            receive();
        }
    }

    void receive() {
        const host::wire::HostEvent event = next(client_);
        if (event.is_snapshot()) {
            services_.clear();
            ++snapshots_;
            EXPECT_GT(event.revision(), revision_);
        } else {
            EXPECT_EQ(event.revision(), revision_ + 1);
        }
        for (const auto& [id, address] : servicesOf(event.registered())) {
            EXPECT_TRUE(services_.emplace(id, address).second) << id;
        }
        for (const auto& [id, address] : servicesOf(event.changed())) {
            EXPECT_EQ(services_.count(id), 1U) << id;
            services_[id] = address;
        }
        for (const std::int32_t id : event.withdrawn()) {
            EXPECT_EQ(services_.erase(id), 1U) << id;
        }
        revision_ = event.revision();
        epoch_ = event.epoch();
    }

    const std::map<std::int32_t, std::string>& services() const { return services_; }
    std::int64_t revision() const { return revision_; }
    std::uint64_t epoch() const { return epoch_; }
    int snapshots() const { return snapshots_; }

  private:
    const host::RawClient& client_;
    std::map<std::int32_t, std::string> services_;
    std::int64_t revision_ = -1;
    std::uint64_t epoch_ = 0;
    int snapshots_ = 0;
};

}  // namespace qv::tests

#endif  // QV_TESTS_QVHOST_SERVER_SUBSCRIBED_H
