// SPDX-License-Identifier: Apache-2.0

// The recorder's thread answers changes, and takes the next changes of the clients.
#include <QvFrame.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include "qvhost/RawClient.h"
#include "qvhost/server/NumberedRequests.h"
#include "qvhost/server/ServedDirectory.h"

namespace qv::host {
namespace {

using testing::Each;
using testing::SizeIs;
using tests::decode;
using tests::ServedDirectory;
using tests::Services;

constexpr uint32_t kChanges = 5;

// Sends a client's changes one by one, each while the one before is committed.
class ConversationChangesTest : public testing::Test {
  protected:
    ConversationChangesTest() {
        served.published = [this](int64_t revision) {
            // The follower's notes are commits with the same revision.
            if (revision == 0 || revision != sent_ || hasEnded_) {
                return;
            }
            if (revision < kChanges) {
                send();
            }
            if (revision > 1) {
                committing(revision);
            }
            if (revision == kChanges) {
                hasEnded_ = true;
                end_.set_value();
            }
        };
    }

    void begin() {
        client.emplace(served.connect());
        send();
    }

    // Waits until the last change is committed and, perhaps, not answered yet.
    void awaitEnd() { end_.get_future().wait(); }

    std::optional<RawClient> client;
    // Called during the commit of a change that the recorder took itself. The next one has arrived.
    std::function<void(int64_t)> committing = [](int64_t /*revision*/) {};

  private:
    void send() {
        const uint32_t number = ++sent_;
        EXPECT_TRUE(client->send(registration(number, {{1, std::to_string(number)}})));
    }

    std::atomic<uint32_t> sent_ = 0;
    bool hasEnded_ = false;
    std::promise<void> end_;

  protected:
    // Declared last: the recorder uses the other members until it ends.
    ServedDirectory served;
};

TEST_F(ConversationChangesTest, ChangesThatTheRecorderTakesDoNotWakeTheThread) {
    std::vector<std::size_t> handlers;
    committing = [&](int64_t /*revision*/) {
        handlers.push_back(served.thread().context().poll());
    };
    served.start(false);
    begin();
    served.thread().context().poll();
    awaitEnd();
    EXPECT_THAT(handlers, SizeIs(kChanges - 1));
    EXPECT_THAT(handlers, Each(0));
}

// The client's thread gets the first change only.
TEST_F(ConversationChangesTest, RecorderGoesOnWithTheChangesOfAClient) {
    served.start(false);
    begin();
    served.thread().context().poll();
    for (uint32_t number = 1; number <= kChanges; ++number) {
        next(*client, number);
    }
    EXPECT_EQ(served.recorder().state()->snapshot->find(1), std::to_string(kChanges));
}

// The clients' thread gets the first change of each client only.
TEST_F(ConversationChangesTest, RecorderGoesOnWithTheChangesOfSeveralClients) {
    std::vector<RawClient> clients;
    std::vector<uint32_t> sent(3, 0);
    const auto address = [](uint32_t number) { return std::to_string(number); };
    const auto send = [&](std::size_t i) {
        const uint32_t number = ++sent[i];
        const auto id = static_cast<int32_t>(i);
        EXPECT_TRUE(clients[i].send(registration(number, {{id, address(number)}})));
    };
    ServedDirectory other;
    other.published = [&](int64_t revision) {
        for (std::size_t i = 0; revision != 0 && i < sent.size(); ++i) {
            const SnapshotPointer snapshot = other.recorder().state()->snapshot;
            const bool isMade = snapshot->find(static_cast<int32_t>(i)) == address(sent[i]);
            if (isMade && sent[i] < kChanges) {
                send(i);
            }
        }
    };
    other.start(false);
    for (std::size_t i = 0; i < sent.size(); ++i) {
        clients.push_back(other.connect());
    }
    for (std::size_t i = 0; i < sent.size(); ++i) {
        send(i);
    }
    other.thread().context().poll();
    for (const RawClient& client : clients) {
        for (uint32_t number = 1; number <= kChanges; ++number) {
            next(client, number);
        }
    }
}

// The socket has room for some hundred answers. The client's thread waits for room, so the recorder
// must not go on with the client until that thread has run.
TEST_F(ConversationChangesTest, RecorderLeavesAClientThatDoesNotReadToTheThread) {
    constexpr int64_t kMany = 1000;
    std::optional<RawClient> silent;
    const auto send = [&](int64_t number) {
        const std::string address = std::to_string(number);
        EXPECT_TRUE(silent->send(registration(static_cast<uint32_t>(number), {{1, address}})));
    };
    std::atomic<int64_t> sent = 0;
    ServedDirectory other;
    other.published = [&](int64_t revision) {
        if (revision == sent && sent != 0 && sent != kMany) {
            send(++sent);
        }
    };
    other.start(false);
    silent.emplace(other.connect());
    send(sent = 1);
    const auto revision = [&] { return other.recorder().state()->snapshot->revision(); };
    int64_t before = 0;
    other.thread().context().poll();
    do {
        before = revision();
        other.recorder().note({});  // waits for a commit, which has the next change if it is taken
    } while (revision() != before || before == 0);
    EXPECT_LT(before, kMany);
    for (int64_t number = 1; number <= kMany; ++number) {
        other.thread().context().poll();
        next(*silent, static_cast<uint32_t>(number));
    }
}

TEST_F(ConversationChangesTest, ClientReturnsToItsThreadAfterItsChanges) {
    served.start();
    begin();
    for (uint32_t number = 1; number <= kChanges; ++number) {
        next(*client, number);
    }
    EXPECT_EQ(listedInTurn(*client), (Services{{1, std::to_string(kChanges)}}));
    ASSERT_TRUE(client->send(registration(7, {{1, "a"}}) + listing(8)));
    next(*client, 7);
    EXPECT_EQ(decode(next(*client, 8).bytes), (Services{{1, "a"}}));
}

TEST_F(ConversationChangesTest, ClientThatLeavesDuringItsChangesIsForgotten) {
    committing = [&](int64_t revision) {
        if (revision == kChanges) {
            client.reset();
        }
    };
    served.start();
    begin();
    awaitEnd();
    EXPECT_TRUE(served.connect().works());
    served.stop().wait();
    EXPECT_EQ(served.clients().count(), 0U);
}

TEST_F(ConversationChangesTest, ClientWhoseChangesAreTakenIsToldOfTheEnd) {
    std::future<void> gone;
    committing = [&](int64_t revision) {
        if (revision == kChanges) {
            gone = served.stop();
        }
    };
    served.start();
    begin();
    awaitEnd();
    for (uint32_t number = 1; number <= kChanges; ++number) {
        next(*client, number);
    }
    next(*client, 0, QV_HOST_ERROR_STOPPING);
    gone.wait();
}

TEST_F(ConversationChangesTest, RecorderLeavesOtherRequestsToTheThread) {
    const std::string change = registration(2, {{2, "/b"}});
    const std::string longChange = registration(2, {{2, std::string(2000, 'b')}});
    const std::string requests[] = {ping(2), listing(2), change.substr(0, 3), change + ping(3),
                                    longChange};
    for (const std::string& request : requests) {
        std::optional<RawClient> client;
        std::promise<void> sent;
        std::atomic<bool> isSent = false;
        ServedDirectory other;
        other.published = [&](int64_t revision) {
            if (revision == 1 && !isSent.exchange(true)) {
                EXPECT_TRUE(client->send(request));
                sent.set_value();
            }
        };
        other.start();
        client.emplace(other.connect());
        EXPECT_TRUE(client->send(registration(1, {{1, "/a"}})));
        next(*client, 1);
        sent.get_future().wait();
        if (request.size() == 3) {
            EXPECT_TRUE(client->send(change.substr(3)));
        }
        const Services expected = request == listing(2) ? Services{{1, "/a"}} : Services();
        EXPECT_EQ(decode(next(*client, 2).bytes), expected);
    }
}

TEST_F(ConversationChangesTest, NextChangesThatArriveTogetherAreOneCommit) {
    constexpr uint32_t kTogether = 100;
    std::optional<RawClient> client;
    bool isSent = false;
    ServedDirectory other;
    other.published = [&](int64_t revision) {
        if (revision == 0 || isSent) {
            return;
        }
        isSent = true;
        std::string changes;
        for (uint32_t number = 2; number < 2 + kTogether; ++number) {
            changes += registration(number, {{static_cast<int32_t>(number), "/a"}});
        }
        EXPECT_TRUE(client->send(changes));
    };
    other.start();
    client.emplace(other.connect());
    EXPECT_TRUE(client->send(registration(1, {{1, "/a"}})));
    for (uint32_t number = 1; number < 2 + kTogether; ++number) {
        next(*client, number);
    }
    EXPECT_EQ(other.recorder().statistics().mostChanges, kTogether);
}

TEST_F(ConversationChangesTest, NextChangeThatIsNoneIsAnswered) {
    const std::pair<std::string, uint32_t> changes[] = {
        {registration(2, {{1, "/a"}}), QV_OK},
        {registration(2, {{2, ""}}), QV_HOST_ERROR_REFUSED},
    };
    for (const auto& [change, code] : changes) {
        std::optional<RawClient> client;
        std::atomic<bool> isSent = false;
        ServedDirectory other;
        other.published = [&, &request = change](int64_t revision) {
            if (revision == 1 && !isSent.exchange(true)) {
                EXPECT_TRUE(client->send(request));
            }
        };
        other.start();
        client.emplace(other.connect());
        EXPECT_TRUE(client->send(registration(1, {{1, "/a"}})));
        next(*client, 1);
        next(*client, 2, code);
        EXPECT_EQ(listedInTurn(*client), (Services{{1, "/a"}}));
    }
}

}  // namespace
}  // namespace qv::host
