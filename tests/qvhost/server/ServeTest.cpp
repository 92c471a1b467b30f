// SPDX-License-Identifier: Apache-2.0

#include <QvFrame.h>
#include <QvPlugin.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "qvhost/server/DirectoryRequests.h"
#include "qvhost/server/NotifySocket.h"
#include "support/ConfigurationDocuments.h"

namespace qv::host {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using tests::Services;

void inAnotherProcess(const std::function<void()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        action();
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(Serve, ProcessesShareOneDirectory) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    inAnotherProcess([&] { registerServices(RawClient(host.socket()), {{1, "/run/a.sock"}}); });
    inAnotherProcess([&] { registerServices(RawClient(host.socket()), {{2, "/run/b.sock"}}); });
    EXPECT_EQ(listed(RawClient(host.socket())), (Services{{1, "/run/a.sock"}, {2, "/run/b.sock"}}));
}

TEST(Serve, KilledAndStartedAgainItHasWhatWasRegistered) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    registerServices(RawClient(host.socket()), {{1, "/run/a.sock"}});
    host.signal(SIGKILL);
    EXPECT_EQ(host.wait(), 128 + SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(host.socket()));
    ASSERT_TRUE(host.start());
    EXPECT_EQ(listed(RawClient(host.socket())), (Services{{1, "/run/a.sock"}}));
}

TEST(Serve, SaysOnceWhereItServes) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    EXPECT_TRUE(RawClient(host.socket()).works());
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    // The lines before it say how the directory was found. A host that serves has nothing to say.
    EXPECT_THAT(host.errors(), EndsWith("\nqvhost: serving on " + host.socket() + "\n"));
}

TEST(Serve, RequestsOfOneClientAreAnsweredInTheirOrder) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    std::string requests;
    constexpr uint32_t kCount = 3000;
    for (uint32_t number = 0; number < kCount; number += 3) {
        requests += frame(QV_HOST_COMMAND_PING, number, "ignored");
        requests += frame(QV_COMMAND_GET_SERVICES, number + 1);
        requests += frame(0x0fff, number + 2, std::string(number % 100, 'x'));
    }
    // The host must read on before the client reads the answers, as far as the sockets have room.
    ASSERT_TRUE(client.send(requests));
    for (uint32_t number = 0; number < kCount; ++number) {
        const std::optional<RawAnswer> answer = client.receive();
        ASSERT_TRUE(answer);
        ASSERT_EQ(answer->number, number);
        ASSERT_EQ(answer->code,
                  number % 3 == 2 ? uint32_t{QV_HOST_ERROR_COMMAND} : uint32_t{QV_OK});
    }
    EXPECT_TRUE(client.works());
}

TEST(Serve, RequestMayArriveByteByByteAndItsClientEndSending) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    for (const char byte :
         frame(QV_COMMAND_REGISTER_SERVICES, 7, tests::encode({{5, "e"}})) + frame(0, 8)) {
        ASSERT_TRUE(client.send(std::string(1, byte)));
    }
    client.endSending();
    const std::vector<RawAnswer> answers = client.receiveAll();
    ASSERT_THAT(answers, SizeIs(2));
    EXPECT_EQ(answers[0].number, 7U);
    EXPECT_EQ(answers[1].number, 8U);
    EXPECT_EQ(listed(RawClient(host.socket())), (Services{{5, "e"}}));
}

TEST(Serve, LongRequestsAndAnswersArriveWhole) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    Services services = manyServices();
    registerServices(client, services);
    // A failure must not print the bytes.
    EXPECT_TRUE(listed(client) == services);
    services.emplace_back(1'000'000, "b");
    registerServices(client, {services.back()});
    EXPECT_TRUE(listed(client) == services);
}

TEST(Serve, TooFewDescriptorsForOneClientAreAFailure) {
    HostProcess host;
    host.setPreparation([] {
        const rlimit few = {40, 40};
        ::setrlimit(RLIMIT_NOFILE, &few);
    });
    EXPECT_FALSE(host.start({"--threads", "20"}));
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(), HasSubstr("the limit of open files is 40, and the host needs "));
    EXPECT_FALSE(std::filesystem::exists(host.socket()));
}

TEST(Serve, ThousandClientsAtOnceAreServed) {
    rlimit limit = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_max < 1400) {
        GTEST_SKIP() << "the system allows only " << limit.rlim_max << " open files";
    }
    HostProcess host;
    // The host raises the limit for its threads and for the clients.
    host.setPreparation([limit] {
        rlimit low = limit;
        low.rlim_cur = 100;
        ::setrlimit(RLIMIT_NOFILE, &low);
    });
    ASSERT_TRUE(host.start({"--threads", "40"}));
    limit.rlim_cur = limit.rlim_max;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 1000; ++i) {
        clients.push_back(std::make_unique<RawClient>(host.socket()));
        ASSERT_TRUE(clients.back()->works()) << i;
    }
    uint32_t number = 0;
    for (const auto& client : clients) {
        ASSERT_TRUE(client->send(frame(QV_COMMAND_GET_SERVICES, ++number)));
    }
    number = 0;
    for (const auto& client : clients) {
        const std::optional<RawAnswer> answer = client->receive();
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->number, ++number);
    }
    EXPECT_THAT(host.errors(), Not(HasSubstr("warning")));
}

TEST(Serve, WrongOptionsAreWrongUse) {
    const std::vector<std::vector<std::string>> wrong = {
        {"--threads", "0"},          {"--threads", "many"},
        {"--max-message", "-1"},     {"--max-message", "2147483648"},
        {"--max-clients", "0"},      {"--idle-timeout", "-1"},
        {"--frame-timeout", "nan"},  {"--frame-timeout", "1s"},
        {"--stop-timeout", "0"},     {"--stop-timeout", "1e9"},
        {"--allow-user", "no such"}, {"--allow-group", "no such"},
        {"--allow-user", ""},        {"more"},
    };
    for (const std::vector<std::string>& options : wrong) {
        HostProcess host;
        EXPECT_FALSE(host.start(options)) << testing::PrintToString(options);
        EXPECT_EQ(host.wait(), 2) << testing::PrintToString(options);
        EXPECT_THAT(host.errors(), testing::StartsWith("qvhost: "));
        EXPECT_FALSE(std::filesystem::exists(host.files().path("log")));
    }
}

TEST(Serve, UnknownNamesAreRefused) {
    HostProcess host;
    EXPECT_FALSE(host.start({"--allow-user", "nobody-of-this-name"}));
    EXPECT_EQ(host.wait(), 2);
    EXPECT_EQ(host.errors(), "qvhost: no user 'nobody-of-this-name'\n");
    EXPECT_FALSE(host.start({"--allow-user", "0", "--allow-group", "no-such-group"}));
    EXPECT_EQ(host.wait(), 2);
    EXPECT_EQ(host.errors(), "qvhost: no group 'no-such-group'\n");
}

TEST(Serve, SecondHostLeavesTheFirstAlone) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    HostProcess second;
    second.useSocket(host.socket());
    EXPECT_FALSE(second.start());
    EXPECT_EQ(second.wait(), 1);
    EXPECT_EQ(second.errors(), "qvhost: " + host.socket() + " is in use by another host\n");
    // The second host has not even opened the log.
    EXPECT_FALSE(std::filesystem::exists(second.files().path("log")));
    EXPECT_TRUE(RawClient(host.socket()).works());
}

TEST(Serve, FileInTheSocketsPlaceIsLeftAlone) {
    HostProcess host;
    host.files().write("host.sock", "text");
    EXPECT_FALSE(host.start());
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.errors(),
              "qvhost: " + host.socket() + " exists, is no socket and is left as it is\n");
    EXPECT_EQ(readFile(host.socket()), "text");
}

TEST(Serve, PluginThatCannotBeInitialisedIsAFailureThatLeavesNoSocket) {
    HostProcess host;
    host.disturbPlugin("initialize throws text");
    EXPECT_FALSE(host.start());
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(), HasSubstr("cannot initialise"));
    EXPECT_FALSE(std::filesystem::exists(host.socket()));
    EXPECT_FALSE(std::filesystem::exists(host.socket() + ".lock"));
}

TEST(Serve, WithoutALogDirectoryItWarnsAndServes) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--log-dir", "/dev/null/log"}));
    EXPECT_THAT(host.errors(), HasSubstr("qvhost: warning: --log-dir /dev/null/log: "));
    EXPECT_TRUE(RawClient(host.socket()).works());
}

TEST(Serve, WithoutAConfigurationItMakesOne) {
    HostProcess host;
    std::filesystem::remove(host.configuration());
    ASSERT_TRUE(host.start());
    EXPECT_THAT(host.errors(), HasSubstr(host.configuration() + " does not exist: "));
    registerServices(RawClient(host.socket()), {{1, "a"}});
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(readFile(host.configuration()), tests::documentOf({{1, "a"}}));
}

TEST(Serve, StatusTellsWhatTheHostDoes) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--max-clients", "20"}));
    const RawClient client(host.socket());
    registerServices(client, {{1, "a"}, {2, "bc"}});
    withdraw(client, 2);
    EXPECT_EQ(client.ask(0x0fff, 1)->code, uint32_t{QV_HOST_ERROR_COMMAND});
    const wire::HostStatus status = statusOf(client);
    EXPECT_NE(status.version(), "");
    EXPECT_EQ(status.services(), 1U);
    EXPECT_EQ(status.address_bytes(), 1U);
    EXPECT_TRUE(status.kept());
    EXPECT_EQ(status.file().path(), host.configuration());
    EXPECT_EQ(status.commits().changes(), 2U);
    EXPECT_EQ(status.clients(), 1U);
    EXPECT_EQ(status.client_limit(), 20U);
    const auto numberOf = [](const auto& counts, uint32_t code) {
        const auto count = std::find_if(counts.begin(), counts.end(),
                                        [code](const auto& each) { return each.code() == code; });
        return count == counts.end() ? 0 : count->count();
    };
    EXPECT_EQ(numberOf(status.requests(), QV_COMMAND_REGISTER_SERVICES), 1U);
    EXPECT_EQ(numberOf(status.requests(), QV_HOST_COMMAND_STATUS), 1U);
    EXPECT_EQ(numberOf(status.refusals(), QV_HOST_ERROR_COMMAND), 1U);
}

TEST(Serve, RemovedSocketIsMadeAgain) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    const RawClient early(host.socket());
    EXPECT_TRUE(early.works());
    std::filesystem::remove(host.socket());
    EXPECT_TRUE(host.waitForError(host.socket() + " was gone and is there again"));
    EXPECT_TRUE(RawClient(host.socket()).works());
    EXPECT_TRUE(early.works());
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(host.socket()));
}

// Makes standard error a pipe that has no room left.
void fillStandardError() {
    const int flags = ::fcntl(STDERR_FILENO, F_GETFL);
    ::fcntl(STDERR_FILENO, F_SETFL, flags | O_NONBLOCK);
    const std::string part(4096, '\n');
    while (::write(STDERR_FILENO, part.data(), part.size()) > 0) {
    }
    ::fcntl(STDERR_FILENO, F_SETFL, flags);
}

TEST(Serve, StandardErrorThatNobodyReadsStopsNothing) {
    HostProcess host;
    const NotifySocket manager(host);
    host.setPreparation(&fillStandardError);
    host.launch();
    manager.waitFor("READY=1");
    const RawClient client(host.socket());
    registerServices(client, {{1, "a"}});
    host.signal(SIGHUP);
    manager.waitFor("READY=1");
    EXPECT_EQ(listed(client), (Services{{1, "a"}}));
    host.signal(SIGTERM);
    siginfo_t ended = {};
    EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(host.process()), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(host.wait(), 0);
}

}  // namespace
}  // namespace qv::host
