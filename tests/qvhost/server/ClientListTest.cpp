// SPDX-License-Identifier: Apache-2.0

#include "server/ClientList.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "qvhost/server/Users.h"

namespace qv::host {
namespace {

using Clock = ConnectedClient::Clock;
using std::chrono::seconds;

constexpr std::size_t kPlaces = 16;

// A client in a list, over a pair of connected sockets.
class Connected {
  public:
    explicit Connected(ClientList& list, uid_t user = kOwner) {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends_), 0);
        client_.emplace(list, ends_[0], user);
    }
    ~Connected() {
        client_.reset();
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    Connected(const Connected&) = delete;
    Connected& operator=(const Connected&) = delete;

    ConnectedClient& client() { return *client_; }

    bool canBeRead() const { return ::recv(ends_[0], &byte, 1, 0) != 0; }
    bool canBeWritten() const { return ::send(ends_[0], "x", 1, MSG_NOSIGNAL) == 1; }
    void fill() const {
        while (canBeWritten()) {
        }
    }
    bool sends() const { return ::send(ends_[1], "x", 1, MSG_NOSIGNAL) == 1; }

  private:
    static inline char byte = 0;
    int ends_[2] = {-1, -1};
    std::optional<ConnectedClient> client_;
};

TEST(ConnectedClient, IsCountedWhileItLives) {
    ClientList list(kPlaces, kOwner);
    EXPECT_EQ(list.count(), 0U);
    {
        const Connected first(list);
        const Connected second(list);
        EXPECT_EQ(list.count(), 2U);
    }
    EXPECT_EQ(list.count(), 0U);
}

TEST(ConnectedClient, OtherUserGetsAQuarterOfThePlaces) {
    ClientList list(kPlaces, kOwner);
    std::vector<std::unique_ptr<Connected>> clients;
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(list.refusal(kOther), "");
        clients.push_back(std::make_unique<Connected>(list, kOther));
    }
    const Connected owner(list, kOwner);
    EXPECT_EQ(
        list.refusal(kOther),
        "5 clients are connected, 4 of them of user 60001, and the host takes no more of this "
        "user");
    EXPECT_EQ(list.refusal(kOther + 1), "");
    EXPECT_EQ(list.refusal(kOwner), "");
    clients.pop_back();
    EXPECT_EQ(list.refusal(kOther), "");
}

TEST(ConnectedClient, OwnerAndRootFindPlacesWhateverOthersHave) {
    ClientList list(kPlaces, kOwner);
    std::vector<std::unique_ptr<Connected>> clients;
    for (uid_t user = kOther; list.refusal(user).empty(); ++user) {
        clients.push_back(std::make_unique<Connected>(list, user));
    }
    EXPECT_EQ(clients.size(), 12U);
    while (list.refusal(kOwner).empty()) {
        clients.push_back(std::make_unique<Connected>(list, kOwner));
    }
    EXPECT_EQ(clients.size(), 15U);
    EXPECT_EQ(list.refusal(0), "");
    clients.push_back(std::make_unique<Connected>(list, 0));
    EXPECT_EQ(list.refusal(0),
              "16 clients are connected, 1 of them of user 0, and the host takes no more of this "
              "user");
}

TEST(ConnectedClient, IsReadNoMoreAfterTheTimeButMayBeAnswered) {
    ClientList list(kPlaces, kOwner);
    Connected late(list);
    const Clock::time_point start = Clock::now();
    late.client().reads(start + seconds(10));
    list.sweep(start + seconds(9));
    EXPECT_TRUE(late.canBeRead());
    EXPECT_EQ(late.client().ending(), ConnectedClient::Ending::ByItself);
    list.sweep(start + seconds(10));
    EXPECT_FALSE(late.canBeRead());
    EXPECT_TRUE(late.canBeWritten());
    EXPECT_EQ(late.client().ending(), ConnectedClient::Ending::TimedOut);
}

TEST(ConnectedClient, IsDisconnectedIfItDoesNotReadItsAnswer) {
    ClientList list(kPlaces, kOwner);
    Connected deaf(list);
    const Clock::time_point start = Clock::now();
    deaf.client().writes(start + seconds(10));
    list.sweep(start + seconds(9));
    EXPECT_TRUE(deaf.canBeWritten());
    deaf.fill();
    list.sweep(start + seconds(10));
    EXPECT_FALSE(deaf.canBeRead());
}

TEST(ConnectedClient, IsNotBlamedForABusyThread) {
    ClientList list(kPlaces, kOwner);
    Connected sender(list);
    Connected receiver(list);
    const Clock::time_point start = Clock::now();
    sender.client().reads(start + seconds(10));
    receiver.client().writes(start + seconds(10));
    EXPECT_TRUE(sender.sends());
    list.sweep(start + seconds(20));
    EXPECT_TRUE(sender.sends());
    EXPECT_EQ(sender.client().ending(), ConnectedClient::Ending::ByItself);
    EXPECT_TRUE(receiver.canBeWritten());
    receiver.fill();
    list.sweep(start + seconds(20));
    EXPECT_FALSE(receiver.canBeRead());
}

TEST(ConnectedClient, HasNoBoundWhileItsRequestIsExecuted) {
    ClientList list(kPlaces, kOwner);
    Connected busy(list);
    Connected unbounded(list);
    const Clock::time_point start = Clock::now();
    busy.client().reads(start + seconds(10));
    busy.client().works();
    unbounded.client().reads({});
    list.sweep(start + std::chrono::hours(10'000));
    for (Connected* client : {&busy, &unbounded}) {
        EXPECT_TRUE(client->canBeRead());
        EXPECT_TRUE(client->canBeWritten());
    }
}

TEST(ConnectedClient, IsNotDisconnectedForAnotherThatIsLate) {
    ClientList list(kPlaces, kOwner);
    Connected late(list);
    Connected other(list);
    const Clock::time_point start = Clock::now();
    late.client().reads(start + seconds(1));
    other.client().reads(start + seconds(3));
    list.sweep(start + seconds(2));
    EXPECT_FALSE(late.canBeRead());
    EXPECT_TRUE(other.canBeRead());
}

TEST(ConnectedClient, SendsNothingMoreAfterAStop) {
    bool emptied = false;
    ClientList list(kPlaces, kOwner);
    Connected client(list);
    EXPECT_TRUE(client.sends());
    list.stop([&] { emptied = true; });
    EXPECT_FALSE(client.sends());
    EXPECT_TRUE(client.canBeRead());
    EXPECT_FALSE(client.canBeRead());
    EXPECT_TRUE(client.canBeWritten());
    EXPECT_EQ(client.client().ending(), ConnectedClient::Ending::Stopped);
    EXPECT_FALSE(emptied);
}

TEST(ConnectedClient, IsToldOfWhenItIsTheLastToGo) {
    ClientList list(kPlaces, kOwner);
    auto first = std::make_unique<Connected>(list);
    auto second = std::make_unique<Connected>(list);
    int emptied = 0;
    list.stop([&] { ++emptied; });
    second.reset();
    EXPECT_EQ(emptied, 0);
    first.reset();
    EXPECT_EQ(emptied, 1);
    ClientList empty(kPlaces, kOwner);
    empty.stop([&] { ++emptied; });
    EXPECT_EQ(emptied, 2);
}

TEST(ConnectedClient, NeitherReadsNorWritesAfterADrop) {
    ClientList list(kPlaces, kOwner);
    Connected client(list);
    list.drop();
    EXPECT_FALSE(client.canBeRead());
    EXPECT_FALSE(client.canBeWritten());
}

}  // namespace
}  // namespace qv::host
