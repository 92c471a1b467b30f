// SPDX-License-Identifier: Apache-2.0

#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "qvhost/server/DirectoryRequests.h"
#include "support/FileModes.h"
#include "support/OtherUser.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {
namespace {

using testing::SizeIs;

constexpr uid_t kNobody = 65534;

class ServeAccess : public testing::Test {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root can become another user";
        }
        // Other users may reach the socket.
        ASSERT_EQ(::chmod(host.files().path("").c_str(), 0755), 0);
    }

    static void asNobody(const std::function<void()>& action) {
        // asOrdinaryUser() gives its directory to the user, so it must hold no file of the host.
        const tests::TemporaryDirectory elsewhere;
        tests::asOrdinaryUser(elsewhere.path(), action);
    }

    // Returns a client of the user, although root runs the test.
    RawClient clientOf(uid_t user) const {
        EXPECT_EQ(::seteuid(user), 0);
        RawClient client(host.socket());
        EXPECT_EQ(::seteuid(0), 0);
        return client;
    }

    // Connects clients of the user until one is refused. Returns the others.
    std::vector<RawClient> allClientsOf(uid_t user) const {
        std::vector<RawClient> clients;
        constexpr std::size_t kEnough = 100;
        while (clients.size() < kEnough) {
            RawClient client = clientOf(user);
            static_cast<void>(client.send(frame(QV_HOST_COMMAND_PING, 1)));
            const std::optional<RawAnswer> answer = client.receive();
            if (!answer || answer->code != QV_OK) {
                EXPECT_TRUE(answer && answer->code == QV_HOST_ERROR_CLIENTS);
                break;
            }
            clients.push_back(std::move(client));
        }
        return clients;
    }

    void expectRefused() const {
        const RawClient client(host.socket());
        static_cast<void>(client.send(frame(QV_HOST_COMMAND_PING, 1)));
        const std::vector<RawAnswer> answers = client.receiveAll();
        ASSERT_THAT(answers, SizeIs(1));
        EXPECT_EQ(answers[0].code, uint32_t{QV_HOST_ERROR_FORBIDDEN});
        EXPECT_EQ(answers[0].number, 0U);
        EXPECT_EQ(answers[0].bytes, "user 65534 may not use this host");
    }

    HostProcess host;
};

TEST_F(ServeAccess, SocketIsForTheOwnerAlone) {
    ASSERT_TRUE(host.start());
    EXPECT_EQ(tests::modeOf(host.socket()), 0600U);
    asNobody([&] {
        try {
            const RawClient client(host.socket());
            ADD_FAILURE() << "connected";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), EACCES);
        }
    });
}

TEST_F(ServeAccess, AnotherUserIsRefusedByHisCredentials) {
    ASSERT_TRUE(host.start());
    ASSERT_EQ(::chmod(host.socket().c_str(), 0666), 0);
    asNobody([&] { expectRefused(); });
    EXPECT_TRUE(RawClient(host.socket()).works());
}

TEST_F(ServeAccess, UserWhoIsAllowedIsServed) {
    ASSERT_TRUE(host.start({"--allow-user", "12345", "--allow-user", "65534"}));
    EXPECT_EQ(tests::modeOf(host.socket()), 0666U);
    asNobody([&] { EXPECT_TRUE(RawClient(host.socket()).works()); });
    EXPECT_TRUE(RawClient(host.socket()).works());
}

TEST_F(ServeAccess, MemberOfAnAllowedGroupIsServed) {
    ASSERT_TRUE(host.start({"--allow-group", "65534"}));
    asNobody([&] { EXPECT_TRUE(RawClient(host.socket()).works()); });
}

TEST_F(ServeAccess, SupplementaryGroupsCount) {
    ASSERT_TRUE(host.start({"--allow-group", "12345"}));
    asNobody([&] { expectRefused(); });
    const pid_t child = ::fork();
    if (child == 0) {
        const gid_t groups[] = {1, 12345};
        EXPECT_EQ(::setgroups(2, groups), 0);
        EXPECT_EQ(::setgid(kNobody), 0);
        EXPECT_EQ(::setuid(kNobody), 0);
        EXPECT_TRUE(RawClient(host.socket()).works());
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(ServeAccess, NoUserKeepsTheOthersOut) {
    ASSERT_TRUE(
        host.start({"--allow-user", "65534", "--allow-user", "12345", "--max-clients", "16"}));
    const std::vector<RawClient> clients = allClientsOf(kNobody);
    EXPECT_THAT(clients, SizeIs(4));
    const std::vector<RawClient> others = allClientsOf(12345);
    EXPECT_THAT(others, SizeIs(4));
    EXPECT_THAT(allClientsOf(0), SizeIs(8));
    EXPECT_TRUE(clients.front().works());
}

TEST_F(ServeAccess, OnlyRootAndTheHostsUserSetTheLevel) {
    ASSERT_TRUE(host.start({"--allow-user", "65534"}));
    const RawClient client = clientOf(kNobody);
    const std::optional<RawAnswer> answer = client.ask(QV_COMMAND_SET_DEBUG_LEVEL, 1, kLevelInput);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_HOST_ERROR_PRIVILEGE});
    EXPECT_NE(answer->bytes, "");
    expectService(client, 1);
    expectDone(clientOf(0), QV_COMMAND_SET_DEBUG_LEVEL, kLevelInput);
    EXPECT_TRUE(host.waitForError("user 0 set the debug level\n"));
}

TEST_F(ServeAccess, RefusedUserIsReportedOnceAMinute) {
    ASSERT_TRUE(host.start());
    ASSERT_EQ(::chmod(host.socket().c_str(), 0666), 0);
    for (int i = 0; i < 10; ++i) {
        clientOf(kNobody).receive();
    }
    clientOf(12345).receive();
    EXPECT_TRUE(host.waitForError("refused user 12345"));
    const std::size_t report = host.errors().find("refused user 65534");
    ASSERT_NE(report, std::string::npos);
    EXPECT_EQ(host.errors().find("refused user 65534", report + 1), std::string::npos);
}

}  // namespace
}  // namespace qv::host
