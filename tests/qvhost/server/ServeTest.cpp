#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "qvhost/server/NotifySocket.h"
#include "qvhost/server/Pipe.h"
#include "support/LoadedPlugin.h"

namespace qv::host {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using tests::Services;

Services listed(const RawClient& client) {
    const std::optional<RawAnswer> answer = client.ask(QV_COMMAND_GET_SERVICES, 1);
    return answer && answer->code == QV_OK ? tests::decode(answer->bytes) : Services{{-1, "none"}};
}

void registerOne(const RawClient& client, int32_t id, const std::string& address) {
    const std::optional<RawAnswer> answer =
        client.ask(QV_COMMAND_REGISTER_SERVICES, 2, tests::encode({{id, address}}));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_OK});
}

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
    inAnotherProcess([&] { registerOne(RawClient(host.socket()), 1, "/run/a.sock"); });
    inAnotherProcess([&] { registerOne(RawClient(host.socket()), 2, "/run/b.sock"); });
    EXPECT_EQ(listed(RawClient(host.socket())), (Services{{1, "/run/a.sock"}, {2, "/run/b.sock"}}));
}

TEST(Serve, KilledAndStartedAgainItHasWhatWasRegistered) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    registerOne(RawClient(host.socket()), 1, "/run/a.sock");
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
    EXPECT_EQ(host.errors(), "qvhost: serving on " + host.socket() + "\n");
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
    const std::string address(5'000'000, 'a');
    registerOne(client, 1, address);
    // A failure must not print the bytes.
    EXPECT_TRUE(listed(client) == (Services{{1, address}}));
    registerOne(client, 2, "b");
    EXPECT_TRUE(listed(client) == (Services{{1, address}, {2, "b"}}));
}

TEST(Serve, ResultOfThePluginReachesTheClient) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    const std::optional<RawAnswer> answer = client.ask(QV_COMMAND_SET_DEBUG_LEVEL, 3, "\x10\x63");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_ERROR_ARGUMENT});
    EXPECT_THAT(answer->bytes, IsEmpty());
}

TEST(Serve, ExceptionOfThePluginReachesOneClientOnly) {
    HostProcess host;
    host.useFakePlugin("request throws text");
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    const std::optional<RawAnswer> answer = client.ask(QV_COMMAND_GET_SERVICES, 3);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_HOST_ERROR_PLUGIN});
    EXPECT_THAT(answer->bytes, HasSubstr("fail to get the lock"));
    EXPECT_TRUE(client.works());
    host.setBehaviour("");
    EXPECT_EQ(client.ask(QV_COMMAND_GET_SERVICES, 4)->code, uint32_t{QV_OK});
}

TEST(Serve, RequestsOfDifferentClientsAreInThePluginAtOnce) {
    HostProcess host;
    host.useFakePlugin("request meets another");
    ASSERT_TRUE(host.start({"--threads", "2"}));
    const RawClient first(host.socket());
    const RawClient second(host.socket());
    ASSERT_TRUE(first.send(frame(QV_COMMAND_REGISTER_SERVICES, 1)));
    ASSERT_TRUE(second.send(frame(QV_COMMAND_REGISTER_SERVICES, 2)));
    EXPECT_EQ(first.receive()->code, uint32_t{QV_OK});
    EXPECT_EQ(second.receive()->code, uint32_t{QV_OK});
}

// On the thread of another client, the request would wait for that client's request.
TEST(Serve, ClientGetsTheThreadThatAnotherOneLeft) {
    HostProcess host;
    host.useFakePlugin("request meets another");
    const NotifySocket manager(host);
    // With this bound, the manager soon hears how many clients there are.
    ASSERT_TRUE(host.start({"--threads", "2", "--frame-timeout", "0.04"}));
    const RawClient first(host.socket());
    EXPECT_TRUE(first.works());
    {
        const RawClient leaver(host.socket());
        manager.waitFor("clients: 2");
    }
    manager.waitFor("clients: 1");
    const RawClient second(host.socket());
    ASSERT_TRUE(first.send(frame(QV_COMMAND_REGISTER_SERVICES, 1)));
    ASSERT_TRUE(second.send(frame(QV_COMMAND_REGISTER_SERVICES, 2)));
    EXPECT_EQ(first.receive()->code, uint32_t{QV_OK});
    EXPECT_EQ(second.receive()->code, uint32_t{QV_OK});
}

TEST(Serve, AfterALongRequestTheNextOneDelaysNobody) {
    HostProcess host;
    host.useFakePlugin("request waits at the pipe");
    Pipe pipe(host);
    ASSERT_TRUE(host.start({"--threads", "2"}));
    const RawClient first(host.socket());
    const RawClient other(host.socket());
    const RawClient besideFirst(host.socket());
    EXPECT_TRUE(besideFirst.works());
    ASSERT_TRUE(first.send(frame(QV_COMMAND_REGISTER_SERVICES, 1)));
    pipe.meetRequest();
    // The requests that follow have ten times this time.
    const auto begin = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - begin < std::chrono::seconds(1)) {
        ASSERT_TRUE(other.works());
    }
    pipe.letGo();
    EXPECT_EQ(first.receive()->code, uint32_t{QV_OK});
    ASSERT_TRUE(first.send(frame(QV_COMMAND_REGISTER_SERVICES, 2)));
    pipe.meetRequest();
    EXPECT_TRUE(besideFirst.works());
    pipe.letGo();
    EXPECT_EQ(first.receive()->code, uint32_t{QV_OK});
}

TEST(Serve, TooFewDescriptorsForTheThreadsAreAFailure) {
    HostProcess host;
    host.setPreparation([] {
        const rlimit few = {40, 40};
        ::setrlimit(RLIMIT_NOFILE, &few);
    });
    EXPECT_FALSE(host.start({"--threads", "20"}));
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(), HasSubstr("cannot make a thread for clients: Too many open files"));
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
    EXPECT_EQ(host.errors(), "qvhost: serving on " + host.socket() + "\n");
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
    host.useFakePlugin("");
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
    host.useFakePlugin("initialize throws text");
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

TEST(Serve, WithoutAConfigurationItWarnsAndServes) {
    HostProcess host;
    std::filesystem::remove(host.files().path("config/namingService.conf.plist"));
    ASSERT_TRUE(host.start());
    EXPECT_THAT(host.errors(), HasSubstr("qvhost: warning: services are not kept: " +
                                         host.files().path("config/namingService.conf.plist") +
                                         " does not exist (qvhost init makes it)\n"));
    EXPECT_TRUE(RawClient(host.socket()).works());
}

}  // namespace
}  // namespace qv::host
