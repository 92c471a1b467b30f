// SPDX-License-Identifier: Apache-2.0

#include <QvClient.h>
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ClientCalls.h"
#include "KevraCommonMsg.pb.h"
#include "ScriptedServer.h"
#include "ServiceAddress.h"
#include "namingService.pb.h"
#include "support/TemporaryDirectory.h"

namespace qv::client {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::StartsWith;
using tests::answering;
using tests::Failure;
using tests::failureOf;
using tests::frameOf;
using tests::listOf;
using tests::moreThanASocketHolds;
using tests::noting;
using tests::Peer;
using tests::Request;
using tests::ScriptedServer;

TEST(Client, SendsEachRequestAsAFrameWithANumberOfItsOwn) {
    std::vector<Request> requests;
    {
        ScriptedServer server({noting(requests)});
        Client client(server.path());
        client.ping();
        client.registerServices({{1, "a"}, {-2, "b"}});
        client.unregisterServices({1, -2});
        client.setDebugLevel(7);
        EXPECT_TRUE(client.services().empty());
    }
    ASSERT_EQ(requests.size(), 5U);
    for (uint32_t i = 0; i < requests.size(); ++i) {
        EXPECT_EQ(requests[i].number, i + 1);
    }
    EXPECT_EQ(requests[0].command, uint32_t{QV_HOST_COMMAND_PING});
    EXPECT_EQ(requests[0].input, "");
    EXPECT_EQ(requests[1].command, uint32_t{QV_COMMAND_REGISTER_SERVICES});
    EXPECT_EQ(requests[1].input, listOf({{1, "a"}, {-2, "b"}}));
    EXPECT_EQ(requests[2].command, uint32_t{QV_COMMAND_UNREGISTER_SERVICES});
    qor::kevra::ServiceInfoArray ids;
    ASSERT_TRUE(ids.ParseFromString(requests[2].input));
    ASSERT_EQ(ids.services_size(), 2);
    EXPECT_EQ(ids.services(0).id(), 1);
    EXPECT_EQ(ids.services(1).id(), -2);
    EXPECT_EQ(requests[3].command, uint32_t{QV_COMMAND_SET_DEBUG_LEVEL});
    qor::kevra::DebugOption level;
    ASSERT_TRUE(level.ParseFromString(requests[3].input));
    EXPECT_EQ(level.debug_level(), 7);
    EXPECT_EQ(requests[4].command, uint32_t{QV_COMMAND_GET_SERVICES});
    EXPECT_EQ(requests[4].input, "");
}

TEST(Client, SendsNothingWithoutServices) {
    std::vector<Request> requests;
    {
        ScriptedServer server({noting(requests)});
        Client client(server.path());
        client.registerServices({});
        client.unregisterServices({});
        client.ping();
    }
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].command, uint32_t{QV_HOST_COMMAND_PING});
}

TEST(Client, ReadsTheServicesInTheHostsOrder) {
    ScriptedServer server({answering(QV_OK, listOf({{-2, "b"}, {1, ""}, {7, "c\xff"}}))});
    Client client(server.path());
    const std::vector<Service> services = client.services();
    ASSERT_EQ(services.size(), 3U);
    EXPECT_EQ(services[0].id, -2);
    EXPECT_EQ(services[0].address, "b");
    EXPECT_EQ(services[1].address, "");
    EXPECT_EQ(services[2].id, 7);
    EXPECT_EQ(services[2].address, "c\xff");
}

TEST(Client, ReadsAnAnswerThatComesByteByByte) {
    ScriptedServer server({[](Peer& peer) {
        const Request request = peer.receive();
        const std::string list = listOf({{5, "five"}});
        for (const char byte :
             frameOf(QV_OK, static_cast<uint32_t>(list.size()), request.number, list)) {
            peer.send(std::string(1, byte));
        }
        peer.waitForEnd();
    }});
    Client client(server.path());
    EXPECT_EQ(client.services().at(0).address, "five");
}

TEST(Client, CarriesMoreThanASocketHolds) {
    const std::vector<Service> sent = moreThanASocketHolds();
    ScriptedServer server({[](Peer& peer) {
        const Request request = peer.receive();
        peer.answer(QV_OK, "", request.number);
        const Request second = peer.receive();
        peer.answer(QV_OK, request.input, second.number);
        peer.waitForEnd();
    }});
    Client client(server.path());
    client.registerServices(sent);
    EXPECT_EQ(listOf(client.services()), listOf(sent));
}

TEST(Client, ListsMoreThanAParseReadsByDefault) {
    const std::string address(qor::kevra::wire::kInputLimit / 2, 'x');
    ScriptedServer server({answering(QV_OK, listOf({{1, address}, {2, address}, {3, "c"}}))});
    Client client(server.path());
    const std::vector<Service> services = client.services();
    ASSERT_EQ(services.size(), 3U);
    EXPECT_EQ(services[1].address, address);
    EXPECT_EQ(services[2].address, "c");
}

TEST(ClientErrors, RefuseARequestOfWhichThePluginWouldReadOnlyAPart) {
    ScriptedServer server({answering(QV_OK, "")});
    Client client(server.path());
    const Service service = {1, std::string(host::kLongestAddress, 'x')};
    const std::vector<Service> services(qor::kevra::wire::kInputLimit / host::kLongestAddress,
                                        service);
    EXPECT_EQ(failureOf([&] { client.registerServices(services); }).kind, Error::Kind::TooLong);
}

TEST(ClientErrors, SayWhyTheHostCannotBeReached) {
    const tests::TemporaryDirectory directory;
    const std::string missing = directory.path("none.sock");
    const Failure failure = failureOf([&] { const Client client(missing); });
    EXPECT_EQ(failure.kind, Error::Kind::CannotConnect);
    EXPECT_EQ(failure.code, ENOENT);
    EXPECT_EQ(failure.text, "cannot reach the host at " + missing + ": No such file or directory");

    const std::string left = directory.path("left.sock");
    ::close(tests::listenAt(left, 1));
    EXPECT_EQ(failureOf([&] { const Client client(left); }).code, ECONNREFUSED);
}

TEST(ClientErrors, SayThatAPathNamesNoSocket) {
    const std::string longest(sizeof(sockaddr_un{}.sun_path) - 1, 'x');
    EXPECT_EQ(failureOf([&] { const Client client(longest); }).code, ENOENT);
    EXPECT_EQ(failureOf([&] { const Client client(longest + 'x'); }).code, ENAMETOOLONG);
    EXPECT_EQ(failureOf([&] { const Client client(""); }).code, ENOENT);
    EXPECT_EQ(failureOf([&] { const Client client(std::string("\0a", 2)); }).code, ENOENT);
}

TEST(ClientErrors, HoldTheHostsTextAndKeepAConnectionThatTheHostKeeps) {
    ScriptedServer server({[](Peer& peer) {
        peer.answer(QV_HOST_ERROR_COMMAND, "no such command", peer.receive().number);
        peer.answer(QV_OK, "", peer.receive().number);
        peer.waitForEnd();
    }});
    Client client(server.path());
    const Failure failure = failureOf([&] { client.registerServices({{4, "a"}}); });
    EXPECT_EQ(failure.kind, Error::Kind::Refused);
    EXPECT_EQ(failure.code, QV_HOST_ERROR_COMMAND);
    EXPECT_EQ(failure.text, "cannot register service 4: the host refused: no such command");
    client.ping();
}

TEST(ClientErrors, HoldTheHostsTextThatAnswersNoRequest) {
    const auto refusing = [](Peer& peer) { peer.answer(QV_HOST_ERROR_FORBIDDEN, "not you", 0); };
    ScriptedServer server({refusing, refusing});
    Client client(server.path());
    const Failure failure = failureOf([&] { client.ping(); });
    EXPECT_EQ(failure.kind, Error::Kind::Refused);
    EXPECT_EQ(failure.code, QV_HOST_ERROR_FORBIDDEN);
    EXPECT_EQ(failure.text, "cannot ping the host: the host refused: not you");
}

TEST(ClientErrors, HoldThePluginsResult) {
    for (const auto& [code, text] : std::vector<std::pair<int32_t, std::string>>{
             {QV_ERROR_SERIALIZE,
              "the plug-in answered 20001 (the answer could not be serialised)"},
             {QV_ERROR_ARGUMENT, "the plug-in answered 20002 (the request is not valid)"},
             {QV_ERROR_NO_MEMORY, "the plug-in answered 20006 (no memory for the answer)"},
             {77, "the plug-in answered 77 (a result that the interface does not define)"}}) {
        ScriptedServer server({answering(static_cast<uint32_t>(code), "")});
        Client client(server.path());
        const Failure failure = failureOf([&] { client.unregisterServices({1, 2}); });
        EXPECT_EQ(failure.kind, Error::Kind::Result);
        EXPECT_EQ(failure.code, code);
        EXPECT_EQ(failure.text, "cannot unregister 2 services: " + text);
        EXPECT_EQ(failureOf([&] { client.ping(); }).code, code);
    }
}

TEST(ClientErrors, NameABrokenAnswer) {
    const std::string list = listOf({{1, "a"}});
    const auto size = static_cast<uint32_t>(list.size());
    struct Case {
        const char* what;
        std::function<std::string(uint32_t number)> answer;
    };
    const Case cases[] = {
        {"request 2, not 1", [&](uint32_t n) { return frameOf(QV_OK, size, n + 1, list); }},
        {"request 0, not 1", [&](uint32_t) { return frameOf(QV_OK, size, 0, list); }},
        {"request 0, not 1",
         [&](uint32_t) { return frameOf(QV_HOST_ERROR_COMMAND, size, 0, list); }},
        {"2147483648 bytes", [](uint32_t n) { return frameOf(QV_OK, 0x80000000U, n, ""); }},
        {"no list of services", [](uint32_t n) { return frameOf(QV_OK, 1, n, "\x0a"); }},
    };
    for (const Case& broken : cases) {
        ScriptedServer server({[&](Peer& peer) {
                                   peer.send(broken.answer(peer.receive().number));
                                   peer.waitForEnd();
                               },
                               answering(QV_OK, list)});
        Client client(server.path());
        const Failure failure = failureOf([&] { client.services(); });
        EXPECT_EQ(failure.kind, Error::Kind::BrokenAnswer) << failure.text;
        EXPECT_THAT(failure.text, StartsWith("cannot list the services: the host's answer is "));
        EXPECT_THAT(failure.text, HasSubstr(broken.what));
    }
}

TEST(ClientErrors, NameAnAnswerThatCameBeforeTheRequestWasSent) {
    ScriptedServer server({[](Peer& peer) {
        peer.receiveBytes(QV_FRAME_HEADER_SIZE);
        peer.answer(QV_OK, "", 1);
        peer.waitForEnd();
    }});
    Client client(server.path());
    EXPECT_EQ(failureOf([&] { client.registerServices(moreThanASocketHolds()); }).kind,
              Error::Kind::BrokenAnswer);
}

TEST(ClientErrors, SayThatTheRequestIsTooLongForTheHost) {
    ScriptedServer server({[](Peer& peer) {
        peer.receiveBytes(QV_FRAME_HEADER_SIZE);
        peer.answer(QV_HOST_ERROR_LENGTH, "too long", 1);
    }});
    Client client(server.path());
    const Failure failure = failureOf([&] { client.registerServices(moreThanASocketHolds()); });
    EXPECT_EQ(failure.kind, Error::Kind::Refused);
    EXPECT_EQ(failure.code, QV_HOST_ERROR_LENGTH);
}

TEST(ClientConnection, IsLostIfItEndsInAnAnswer) {
    const std::string list = listOf({{1, "a"}});
    const std::string answer = frameOf(QV_OK, static_cast<uint32_t>(list.size()), 1, list);
    for (std::size_t length = 0; length < answer.size(); ++length) {
        ScriptedServer server({[&](Peer& peer) {
            peer.receive();
            peer.send(answer.substr(0, length));
        }});
        Client client(server.path());
        const Failure failure = failureOf([&] { client.services(); });
        EXPECT_EQ(failure.kind, Error::Kind::ConnectionLost) << length;
        EXPECT_EQ(failure.code, 0) << length;
    }
}

TEST(ClientConnection, IsLostWithoutASignalIfItEndsInARequest) {
    const auto previous = std::signal(SIGPIPE, SIG_DFL);
    {
        ScriptedServer server({[](Peer& peer) { peer.receiveBytes(1); }});
        Client client(server.path());
        EXPECT_EQ(failureOf([&] { client.registerServices(moreThanASocketHolds()); }).kind,
                  Error::Kind::ConnectionLost);
    }
    static_cast<void>(std::signal(SIGPIPE, previous));
}

TEST(ClientConnection, IsMadeAgainAfterAFailure) {
    ScriptedServer server({[](Peer& peer) { peer.receive(); },
                           [](Peer& peer) { peer.answer(QV_OK, "", peer.receive().number + 1); },
                           answering(QV_OK, "")});
    Client client(server.path());
    EXPECT_EQ(failureOf([&] { client.ping(); }).kind, Error::Kind::ConnectionLost);
    EXPECT_EQ(failureOf([&] { client.ping(); }).kind, Error::Kind::BrokenAnswer);
    client.ping();
    client.ping();
}

TEST(ClientConnection, IsMadeAgainIfTheHostEndedItBetweenRequests) {
    ScriptedServer server({[](Peer& peer) {
                               peer.answer(QV_OK, "", peer.receive().number);
                               peer.answer(QV_HOST_ERROR_TIMEOUT, "idle for too long", 0);
                           },
                           [](Peer& peer) { peer.receive(); }, answering(QV_OK, "")});
    Client client(server.path());
    client.ping();
    // The server serves the second connection when the first one is closed.
    Client other(server.path());
    EXPECT_THROW(other.ping(), Error);
    client.ping();
}

TEST(ClientConnection, IsNotMadeAgainIfTheHostIsGone) {
    auto server = std::make_unique<ScriptedServer>(std::vector<ScriptedServer::Script>{
        [](Peer& peer) { peer.answer(QV_OK, "", peer.receive().number); }});
    const std::string path = server->path();
    Client client(path);
    client.ping();
    server.reset();
    for (int attempt = 0; attempt < 2; ++attempt) {
        const Failure failure = failureOf([&] { client.services(); });
        EXPECT_EQ(failure.kind, Error::Kind::CannotConnect);
        EXPECT_THAT(failure.text,
                    StartsWith("cannot list the services: cannot reach the host at "));
    }
}

TEST(ClientTimeout, EndsARequestThatIsNotAnswered) {
    ScriptedServer server({[](Peer& peer) { peer.waitForEnd(); }, answering(QV_OK, "")});
    Client client(server.path(), milliseconds(20));
    const Failure failure = failureOf([&] { client.ping(); });
    EXPECT_EQ(failure.kind, Error::Kind::TimedOut);
    EXPECT_EQ(failure.text, "cannot ping the host: the host did not answer in time");
}

TEST(ClientTimeout, EndsAnAnswerThatDoesNotEnd) {
    ScriptedServer server({[](Peer& peer) {
        peer.send(frameOf(QV_OK, 100, peer.receive().number, "x"));
        peer.waitForEnd();
    }});
    Client client(server.path(), milliseconds(20));
    EXPECT_EQ(failureOf([&] { client.services(); }).kind, Error::Kind::TimedOut);
}

TEST(ClientTimeout, EndsARequestThatIsNotRead) {
    std::promise<void> isOver;
    ScriptedServer server({[&](Peer&) { isOver.get_future().wait(); }});
    {
        Client client(server.path(), milliseconds(20));
        EXPECT_EQ(failureOf([&] { client.registerServices(moreThanASocketHolds()); }).kind,
                  Error::Kind::TimedOut);
    }
    isOver.set_value();
}

TEST(ClientTimeout, LeavesNoLateAnswerForTheNextRequest) {
    std::promise<void> isLate;
    constexpr int kMostAttempts = 1000;
    std::vector<ScriptedServer::Script> scripts(kMostAttempts,
                                                answering(QV_OK, listOf({{2, "second"}})));
    scripts.front() = [&](Peer& peer) {
        const Request request = peer.receive();
        isLate.get_future().wait();
        peer.answer(QV_OK, listOf({{1, "first"}}), request.number);
    };
    ScriptedServer server(scripts);
    Client client(server.path(), milliseconds(20));
    EXPECT_EQ(failureOf([&] { client.services(); }).kind, Error::Kind::TimedOut);
    isLate.set_value();
    std::vector<Service> services;
    // On a busy machine, each of these requests may be too slow as well.
    for (int i = 1; i < kMostAttempts && services.empty(); ++i) {
        try {
            services = client.services();
        } catch (const Error& error) {
            ASSERT_EQ(error.kind(), Error::Kind::TimedOut);
        }
    }
    EXPECT_EQ(services.at(0).address, "second");
}

TEST(ClientTimeout, ClosesTheConnectionThatIsNotAnswered) {
    constexpr int kMostAttempts = 200;
    std::vector<ScriptedServer::Script> scripts(kMostAttempts, answering(QV_OK, ""));
    scripts.front() = [](Peer& peer) { peer.waitForEnd(); };
    ScriptedServer server(scripts);
    Client client(server.path(), milliseconds(20));
    EXPECT_EQ(failureOf([&] { client.ping(); }).kind, Error::Kind::TimedOut);
    bool isAnswered = false;
    // On a busy machine, each of these requests may be too slow.
    for (int i = 1; i < kMostAttempts && !isAnswered; ++i) {
        try {
            client.ping();
            isAnswered = true;
        } catch (const Error& error) {
            ASSERT_EQ(error.kind(), Error::Kind::TimedOut);
        }
    }
    EXPECT_TRUE(isAnswered);
}

TEST(ClientTimeout, EndsConnecting) {
    const tests::TemporaryDirectory directory;
    const std::string path = directory.path("host.sock");
    const int listening = tests::listenAt(path, 0);
    std::vector<std::unique_ptr<Client>> waiting;
    Failure failure = {Error::Kind::Result, 0, ""};
    constexpr int kMoreThanWait = 10;
    for (int i = 0; i < kMoreThanWait && failure.kind == Error::Kind::Result; ++i) {
        try {
            waiting.push_back(std::make_unique<Client>(path, milliseconds(20)));
        } catch (const Error& error) {
            failure = {error.kind(), error.code(), error.what()};
        }
    }
    ::close(listening);
#ifdef __APPLE__
    EXPECT_EQ(failure.kind, Error::Kind::CannotConnect);
#else
    EXPECT_EQ(failure.kind, Error::Kind::TimedOut);
    EXPECT_EQ(failure.text,
              "cannot reach the host at " + path + ": it takes no connection in time");
#endif
}

TEST(ClientTimeout, MayBeNone) {
    ScriptedServer server({answering(QV_OK, "")});
    Client client(server.path(), kNoTimeout);
    client.ping();
}

// Interrupts the system calls of this thread repeatedly.
class Interruptions {
  public:
    Interruptions() {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        ::sigaction(SIGALRM, &action, &previous_);
        constexpr suseconds_t kOften = 500;
        const itimerval often = {{0, kOften}, {0, kOften}};
        ::setitimer(ITIMER_REAL, &often, nullptr);
    }
    ~Interruptions() {
        const itimerval never = {};
        ::setitimer(ITIMER_REAL, &never, nullptr);
        ::sigaction(SIGALRM, &previous_, nullptr);
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

  private:
    struct sigaction previous_ = {};
};

TEST(Client, IsNotInterruptedBySignals) {
    const std::vector<Service> services = moreThanASocketHolds();
    ScriptedServer server({[](Peer& peer) {
        for (Request request = peer.receive(); request.number != 0; request = peer.receive()) {
            peer.answer(QV_OK, request.input, request.number);
        }
    }});
    const Interruptions interruptions;
    Client client(server.path());
    for (int i = 0; i < 5; ++i) {
        client.registerServices(services);
        client.ping();
    }
}

TEST(Client, IsIndependentOfOtherClients) {
    constexpr int kClients = 4;
    constexpr int kRequests = 100;
    std::vector<std::unique_ptr<ScriptedServer>> servers;
    std::vector<std::thread> threads;
    for (int i = 0; i < kClients; ++i) {
        const std::string list = listOf({{i, "a"}});
        servers.push_back(std::make_unique<ScriptedServer>(
            std::vector<ScriptedServer::Script>{answering(QV_OK, list)}));
        threads.emplace_back([i, path = servers.back()->path()] {
            Client client(path);
            for (int request = 0; request < kRequests; ++request) {
                EXPECT_EQ(client.services().at(0).id, i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
}  // namespace qv::client
