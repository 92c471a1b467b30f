// SPDX-License-Identifier: Apache-2.0

#include "server/Acceptor.h"

#include <QvFrame.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <csignal>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qvhost/RawClient.h"
#include "qvhost/TestFiles.h"
#include "server/ListeningSocket.h"
#include "support/FileModes.h"
#include "support/OtherUser.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

// Accepts clients at a socket, and keeps them.
class AcceptorTest : public testing::Test {
  protected:
    AcceptorTest() {
        // As the host does: a client may have gone before it is refused.
        static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
        socket_.listen();
    }

    // Begins to accept. Call it when the settings are as the test needs them.
    Acceptor& acceptor() {
        if (!acceptor_) {
            clients_.emplace(settings.limits.maxClients, ::geteuid());
            acceptor_.emplace(
                control, threads_, socket_.release(), *clients_, counts, settings,
                [this](ClientSocket socket, uid_t user, ClientThread& /*thread*/) {
                    if (isShort) {
                        throw std::bad_alloc();
                    }
                    users.push_back(user);
                    served_.push_back(std::make_unique<Served>(std::move(socket), *clients_, user));
                });
            acceptor_->start();
            control.poll();
        }
        return *acceptor_;
    }

    std::string path() const { return socket_.path(); }

    // Accepts until so many clients were served.
    void serve(std::size_t count) {
        acceptor();
        while (users.size() < count) {
            control.run_one();
        }
    }

    uint64_t refusals(uint32_t code) const {
        uint64_t found = 0;
        counts.forEachRefusal([&](uint32_t each, uint64_t number) {
            if (each == code) {
                found = number;
            }
        });
        return found;
    }

    asio::io_context control{1};
    ServerSettings settings;
    Counts counts;
    std::vector<uid_t> users;  // of the clients that were served
    bool isShort = false;

  private:
    struct Served {
        Served(ClientSocket taken, ClientList& clients, uid_t user)
            : socket(std::move(taken)), client(clients, socket.native_handle(), user) {}

        ClientSocket socket;
        ConnectedClient client;
    };

  protected:
    void dropClients() { served_.clear(); }

    TestFiles files_;

  private:
    ListeningSocket socket_{files_.path("a.sock"), false};
    std::optional<ClientList> clients_;
    ClientThreads threads_{1};
    std::vector<std::unique_ptr<Served>> served_;
    std::optional<Acceptor> acceptor_;
};

TEST_F(AcceptorTest, ClientsAreServedAsTheirUsers) {
    const RawClient first(path());
    const RawClient second(path());
    serve(2);
    EXPECT_EQ(users, (std::vector<uid_t>{::geteuid(), ::geteuid()}));
}

TEST_F(AcceptorTest, ClientWithoutAPlaceIsToldAndCounted) {
    settings.limits.maxClients = 1;
    const RawClient first(path());
    const RawClient second(path());
    serve(1);
    while (refusals(QV_HOST_ERROR_CLIENTS) == 0) {
        control.run_one();
    }
    const std::vector<RawAnswer> answers = second.receiveAll();
    ASSERT_THAT(answers, SizeIs(1));
    EXPECT_EQ(answers[0].code, uint32_t{QV_HOST_ERROR_CLIENTS});
    EXPECT_THAT(answers[0].bytes, HasSubstr("takes no more"));
    dropClients();
    const RawClient third(path());
    serve(2);
}

TEST_F(AcceptorTest, RefusedUserIsReportedOnce) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    ASSERT_EQ(::chmod(files_.path("").c_str(), 0755), 0);
    const tests::TemporaryDirectory elsewhere;
    acceptor();
    testing::internal::CaptureStderr();
    for (uint64_t round = 1; round <= 2; ++round) {
        // The client connects and leaves. Its answer waits in the socket.
        tests::asOrdinaryUser(elsewhere.path(), [&] { const RawClient client(path()); });
        while (refusals(QV_HOST_ERROR_FORBIDDEN) < round) {
            control.run_one();
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "qvhost: refused user 65534\n");
    EXPECT_TRUE(users.empty());
}

TEST_F(AcceptorTest, ClientsOfBothSocketsAreServedWhenOneReplacesTheOther) {
    acceptor();
    const RawClient first(path());
    ListeningSocket other(files_.path("b.sock"), false);
    other.listen();
    const RawClient second(other.path());
    testing::internal::CaptureStderr();
    acceptor().replace(system::Descriptor(other.release()));
    EXPECT_THAT(users, SizeIs(1));
    serve(2);
    const RawClient third(other.path());
    serve(3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THROW(const RawClient late(path()), std::system_error);
    // The new socket does not keep the thread waiting, either.
    acceptor().stop(true);
}

TEST_F(AcceptorTest, DescriptorThatCannotReplaceLeavesTheFirstOne) {
    acceptor();
    EXPECT_THROW(acceptor().replace(system::Descriptor()), std::system_error);
    const RawClient client(path());
    serve(1);
}

TEST_F(AcceptorTest, ClientsThatWaitAtTheEndAreServedIfTheSocketGoes) {
    acceptor();
    const RawClient first(path());
    const RawClient second(path());
    acceptor().stop(true);
    EXPECT_THAT(users, SizeIs(2));
    EXPECT_THROW(const RawClient late(path()), std::system_error);
    control.run();
}

TEST_F(AcceptorTest, ClientsThatWaitAtTheEndAreLeftIfTheSocketStays) {
    acceptor();
    const RawClient first(path());
    testing::internal::CaptureStderr();
    acceptor().stop(false);
    EXPECT_THAT(users, SizeIs(0));
    control.run();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(AcceptorTest, EachShortageOfMemoryCostsOneClientAndIsReported) {
    acceptor();
    for (std::size_t round = 1; round <= 2; ++round) {
        isShort = true;
        const RawClient lost(path());
        testing::internal::CaptureStderr();
        control.run_one();
        EXPECT_THAT(lost.receiveAll(), SizeIs(0));
        isShort = false;
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "qvhost: clients have to wait: cannot accept them: Cannot allocate memory\n");
        const RawClient next(path());
        serve(round);
    }
}

TEST_F(AcceptorTest, ClientsWaitWhileNoDescriptorIsFree) {
    acceptor();
    const RawClient client(path());
    rlimit limit = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {3, limit.rlim_max};
    testing::internal::CaptureStderr();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    // Tries, pauses, and tries again.
    for (int i = 0; i < 4; ++i) {
        control.run_one();
    }
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "qvhost: clients have to wait: cannot accept them: Too many open files\n");
    EXPECT_TRUE(users.empty());
    serve(1);
}

}  // namespace
}  // namespace qv::host
