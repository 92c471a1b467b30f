// SPDX-License-Identifier: Apache-2.0

// Tests what a client and qvhost learn from a running host about changes, the file and the host.
#include <QvClient.h>
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "client/ClientCalls.h"
#include "qvhost/HostProcess.h"
#include "qvhost/ProgramRun.h"
#include "support/OtherUser.h"
#include "support/TemporaryDirectory.h"

namespace qv::client {
namespace {

using host::HostProcess;
using host::ProgramOutcome;
using host::ProgramRun;
using host::readFile;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using tests::failureOf;

std::string fileOf(const HostProcess& host) {
    return host.files().path("config/namingService.conf.plist");
}

std::vector<int32_t> idsOf(Client& client) {
    std::vector<int32_t> ids;
    for (const Service& service : client.services()) {
        ids.push_back(service.id);
    }
    return ids;
}

TEST(KeptChanges, OutliveAKill) {
    HostProcess host;
    ASSERT_TRUE(host.start()) << host.errors();
    Client client(host.socket());
    EXPECT_TRUE(client.registerServices({{1, "a"}, {2, "b"}, {3, "c"}}).isKept);
    EXPECT_TRUE(client.unregisterServices({2}).isKept);
    host.signal(SIGKILL);
    host.wait();
    ASSERT_TRUE(host.start()) << host.errors();
    EXPECT_EQ(idsOf(client), (std::vector<int32_t>{1, 3}));
}

TEST(KeptChanges, AreInTheFileAfterASync) {
    HostProcess host;
    ASSERT_TRUE(host.start()) << host.errors();
    Client client(host.socket());
    client.registerServices({{1, "/run/first.sock"}, {2, "/run/second.sock"}});
    client.sync();
    EXPECT_THAT(readFile(fileOf(host)),
                AllOf(HasSubstr("/run/first.sock"), HasSubstr("/run/second.sock")));
    client.unregisterServices({1});
    client.sync();
    EXPECT_THAT(readFile(fileOf(host)),
                AllOf(Not(HasSubstr("/run/first.sock")), HasSubstr("/run/second.sock")));
    EXPECT_EQ(
        ProgramRun().run({"--socket", host.socket(), "register", "--sync", "3", "third"}).status,
        0);
    EXPECT_THAT(readFile(fileOf(host)), HasSubstr("third"));
}

TEST(KeptChanges, AreToldByTheStatus) {
    const auto before = std::chrono::system_clock::now() - std::chrono::seconds(1);
    HostProcess host;
    ASSERT_TRUE(host.start()) << host.errors();
    Client client(host.socket());
    client.registerServices({{1, "aaa"}, {2, "bb"}});
    client.registerServices({{2, "b"}});
    EXPECT_EQ(failureOf([&] { client.setDebugLevel(8); }).code, QV_ERROR_ARGUMENT);
    client.sync();
    const HostStatus status = client.status();
    EXPECT_NE(status.version, "");
    EXPECT_GE(status.startTime, before);
    EXPECT_NE(status.start, "");
    EXPECT_EQ(status.services, 2U);
    EXPECT_EQ(status.addressBytes, 4U);
    EXPECT_TRUE(status.isKept);
    EXPECT_EQ(status.notKeptReason, "");
    EXPECT_EQ(status.file.path, fileOf(host));
    EXPECT_EQ(status.file.revision, status.revision);
    EXPECT_EQ(status.file.behind, 0U);
    EXPECT_EQ(status.file.problem, "");
    EXPECT_GE(status.commits.count, 2U);
    EXPECT_GE(status.commits.changes, 2U);
    EXPECT_GE(status.commits.mostChanges, 1U);
    EXPECT_GE(status.saves.count, 1U);
    EXPECT_EQ(status.clients, 1U);
    EXPECT_EQ(status.clientLimit, 1024U);
    EXPECT_EQ(status.memoryLimit, uint64_t{256} << 20);
    EXPECT_EQ(status.requests.at(QV_COMMAND_REGISTER_SERVICES), 2U);
    EXPECT_EQ(status.requests.at(QV_HOST_COMMAND_SYNC), 1U);
}

TEST(KeptChanges, AreToldToHealthChecks) {
    HostProcess host;
    ASSERT_TRUE(host.start()) << host.errors();
    const ProgramOutcome table = ProgramRun().run({"--socket", host.socket(), "status"});
    EXPECT_EQ(table.status, 0);
    EXPECT_THAT(table.out, HasSubstr("\nkept      yes\n"));
    const ProgramOutcome outcome =
        ProgramRun().run({"--socket", host.socket(), "status", "--json", "--timeout", "30"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(json::parse(outcome.out).at("kept"), true);
}

// Makes every write to a file fail, as on a full disk.
void fillDisk() {
#ifdef QV_SANITIZED
    // ThreadSanitizer writes a file before the program can ignore the signal itself.
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
#endif
    const rlimit limit = {0, 0};
    static_cast<void>(::setrlimit(RLIMIT_FSIZE, &limit));
}

TEST(ChangesWithoutADisk, AreMadeAndNotKept) {
    HostProcess host;
    host.setPreparation(fillDisk);
    ASSERT_TRUE(host.start()) << host.errors();
    Client client(host.socket());
    // A repetition is not kept either.
    for (int attempt = 0; attempt < 2; ++attempt) {
        const ChangeResult result = client.registerServices({{1, "a"}});
        EXPECT_FALSE(result.isKept);
        EXPECT_NE(result.reason, "");
    }
    EXPECT_EQ(idsOf(client), std::vector<int32_t>{1});
    const tests::Failure failure = failureOf([&] { client.sync(); });
    EXPECT_EQ(failure.code, QV_HOST_ERROR_FILE);
    const HostStatus status = client.status();
    EXPECT_FALSE(status.isKept);
    EXPECT_NE(status.notKeptReason, "");
    EXPECT_NE(status.notKeptSince, HostStatus::Time());
    EXPECT_NE(status.file.problem, "");
    EXPECT_GE(status.refusals.at(QV_HOST_ERROR_FILE), 1U);
}

TEST(ChangesWithoutADisk, FailTheCommandsThatMakeThem) {
    HostProcess host;
    host.setPreparation(fillDisk);
    ASSERT_TRUE(host.start()) << host.errors();
    const std::string input = "id,address\n3,c\n";
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"register", "1", "a"}, {"import", "-"}, {"unregister", "1"}}) {
        std::vector<std::string> arguments = {"--socket", host.socket()};
        arguments.insert(arguments.end(), words.begin(), words.end());
        const ProgramOutcome outcome = ProgramRun().run(arguments, input);
        EXPECT_EQ(outcome.status, 1) << words.front();
        EXPECT_THAT(outcome.err, StartsWith("qvhost: not kept: ")) << words.front();
    }
    EXPECT_EQ(ProgramRun().run({"--socket", host.socket(), "list", "--csv"}).out,
              "id,address\n3,c\n");
    EXPECT_EQ(ProgramRun().run({"--socket", host.socket(), "status"}).status, 1);
}

TEST(LevelOfTheHost, IsForItsOwnerAndRoot) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    HostProcess host;
    ASSERT_EQ(::chmod(host.files().path("").c_str(), 0755), 0);
    ASSERT_TRUE(host.start({"--allow-user", "65534"})) << host.errors();
    // asOrdinaryUser() gives its directory to the user, so it must hold no file of the host.
    const tests::TemporaryDirectory elsewhere;
    tests::asOrdinaryUser(elsewhere.path(), [&] {
        Client client(host.socket());
        const tests::Failure failure = failureOf([&] { client.setDebugLevel(7); });
        EXPECT_EQ(failure.kind, Error::Kind::Refused);
        EXPECT_EQ(failure.code, QV_HOST_ERROR_PRIVILEGE);
        EXPECT_TRUE(client.registerServices({{1, "a"}}).isKept);
    });
    Client(host.socket()).setDebugLevel(7);
}

}  // namespace
}  // namespace qv::client
