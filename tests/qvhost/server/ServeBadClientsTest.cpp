// SPDX-License-Identifier: Apache-2.0

// Tests that clients that send garbage, are slow, do not read or go away harm no other client.
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "qvhost/server/DirectoryRequests.h"

namespace qv::host {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

// Returns the header of a request without its bytes.
std::string announced(uint32_t number, uint32_t length) {
    std::string header = frame(QV_COMMAND_REGISTER_SERVICES, number);
    for (std::size_t i = 0; i < 4; ++i) {
        header[4 + i] = static_cast<char>(length >> (8 * i) & 0xff);
    }
    return header;
}

// Returns the last answer of the host.
void expectEnd(const RawClient& client, uint32_t code, uint32_t number) {
    const std::vector<RawAnswer> answers = client.receiveAll();
    ASSERT_THAT(answers, SizeIs(1));
    EXPECT_EQ(answers[0].code, code);
    EXPECT_EQ(answers[0].number, number);
    EXPECT_NE(answers[0].bytes, "");
}

void waitFor(const RawClient& client, short event) {
    pollfd wanted = {client.descriptor(), event, 0};
    constexpr int kNever = 120'000;
    EXPECT_EQ(::poll(&wanted, 1, kNever), 1);
}

TEST(ServeBadClients, LongRequestIsRefusedAfterTheAnswersBeforeIt) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--max-message", "100"}));
    const RawClient other(host.socket());
    const RawClient client(host.socket());
    ASSERT_TRUE(client.send(frame(0, 1, std::string(100, 'x')) + announced(2, 101) + "abc"));
    const std::vector<RawAnswer> answers = client.receiveAll();
    ASSERT_THAT(answers, SizeIs(2));
    EXPECT_EQ(answers[0].code, uint32_t{QV_OK});
    EXPECT_EQ(answers[1].code, uint32_t{QV_HOST_ERROR_LENGTH});
    EXPECT_EQ(answers[1].number, 2U);
    EXPECT_EQ(answers[1].bytes, "the request has 101 bytes, and the host takes 100");
    EXPECT_TRUE(other.works());
}

// Closing a socket with unread bytes would cause an error at the client.
TEST(ServeBadClients, ClientThatSendsTooMuchIsToldWhy) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--max-message", "100"}));
    const RawClient client(host.socket());
    static_cast<void>(client.send(announced(2, 101) + std::string(100'000, 'x')));
    expectEnd(client, QV_HOST_ERROR_LENGTH, 2);
}

TEST(ServeBadClients, FourGibibytesAreRefusedOrCostNothing) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--max-message", "2147483647"}));
    const RawClient other(host.socket());
    const RawClient refused(host.socket());
    ASSERT_TRUE(refused.send(announced(5, 0xffffffff)));
    expectEnd(refused, QV_HOST_ERROR_LENGTH, 5);
    std::vector<std::unique_ptr<RawClient>> patient;
    for (int i = 0; i < 50; ++i) {
        patient.push_back(std::make_unique<RawClient>(host.socket()));
        ASSERT_TRUE(patient.back()->send(announced(5, 0x7fffffff)));
    }
    EXPECT_TRUE(other.works());
}

TEST(ServeBadClients, GarbageIsAnswered) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    const RawClient other(host.socket());
    const RawClient client(host.socket());
    ASSERT_TRUE(client.send("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n"));
    const std::vector<RawAnswer> answers = client.receiveAll();
    ASSERT_THAT(answers, SizeIs(1));
    EXPECT_EQ(answers[0].code, uint32_t{QV_HOST_ERROR_LENGTH});
    const RawClient nonsense(host.socket());
    EXPECT_EQ(nonsense.ask(QV_COMMAND_REGISTER_SERVICES, 1, "\xff\xff\xff\xff")->number, 1U);
    EXPECT_TRUE(nonsense.works());
    EXPECT_TRUE(other.works());
}

TEST(ServeBadClients, ClientsThatLeaveAreForgotten) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    const RawClient other(host.socket());
    registerServices(other, manyServices());
    for (int i = 0; i < 20; ++i) {
        // The clients leave within a frame, before its answer, and within its answer.
        static_cast<void>(RawClient(host.socket()).send(announced(1, 10)));
        static_cast<void>(RawClient(host.socket()).send(frame(QV_COMMAND_GET_SERVICES, 1)));
        const RawClient client(host.socket());
        ASSERT_TRUE(client.send(frame(QV_COMMAND_GET_SERVICES, 1)));
        waitFor(client, POLLIN);
    }
    EXPECT_TRUE(other.works());
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
}

// There is one thread, which a client that does not read must not keep.
TEST(ServeBadClients, ClientThatDoesNotReadKeepsNoThread) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--threads", "1"}));
    registerServices(RawClient(host.socket()), manyServices());
    const RawClient deaf(host.socket());
    const std::string request = frame(QV_COMMAND_GET_SERVICES, 1);
    ASSERT_TRUE(deaf.send(request));
    waitFor(deaf, POLLIN);
    const RawClient other(host.socket());
    EXPECT_TRUE(other.works());
    // The host makes no more answers than the client reads, so the socket of the client fills up.
    int sent = 0;
    while (deaf.sendSome(request) && sent < 1'000'000) {
        ++sent;
    }
    EXPECT_LT(sent, 1'000'000);
    EXPECT_TRUE(other.works());
}

TEST(ServeBadClients, ClientThatDoesNotReadIsDisconnected) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--frame-timeout", "0.1"}));
    registerServices(RawClient(host.socket()), manyServices());
    const RawClient deaf(host.socket());
    ASSERT_TRUE(deaf.send(frame(QV_COMMAND_GET_SERVICES, 1)));
    waitFor(deaf, POLLRDHUP);
    EXPECT_TRUE(RawClient(host.socket()).works());
}

TEST(ServeBadClients, PartOfARequestTimesOut) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--frame-timeout", "0.1"}));
    const RawClient idle(host.socket());
    const RawClient inHeader(host.socket());
    ASSERT_TRUE(inHeader.send(frame(0, 1) + announced(2, 10).substr(0, 11)));
    EXPECT_EQ(inHeader.receive()->number, 1U);
    expectEnd(inHeader, QV_HOST_ERROR_TIMEOUT, 0);
    const RawClient inBytes(host.socket());
    ASSERT_TRUE(inBytes.send(announced(3, 10) + "123456789"));
    expectEnd(inBytes, QV_HOST_ERROR_TIMEOUT, 3);
    // An idle client has no part of a request.
    EXPECT_TRUE(idle.works());
}

TEST(ServeBadClients, SingleBytesDoNotExtendTheTime) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--frame-timeout", "0.1"}));
    const RawClient client(host.socket());
    ASSERT_TRUE(client.send(announced(3, 1'000'000)));
    int sent = 0;
    pollfd answered = {client.descriptor(), POLLIN, 0};
    while (::poll(&answered, 1, 1) == 0 && sent < 999'999) {
        if (!client.send("x")) {
            break;
        }
        ++sent;
    }
    EXPECT_LT(sent, 999'999);
    expectEnd(client, QV_HOST_ERROR_TIMEOUT, 3);
}

TEST(ServeBadClients, IdleClientTimesOutIfThereIsABound) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--idle-timeout", "0.1"}));
    const RawClient client(host.socket());
    EXPECT_TRUE(client.works());
    expectEnd(client, QV_HOST_ERROR_TIMEOUT, 0);
    EXPECT_TRUE(RawClient(host.socket()).works());
}

TEST(ServeBadClients, ClientBeyondTheBoundIsRefusedUntilAnotherLeaves) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--max-clients", "2"}));
    const RawClient first(host.socket());
    auto second = std::make_unique<RawClient>(host.socket());
    EXPECT_TRUE(first.works());
    EXPECT_TRUE(second->works());
    expectEnd(RawClient(host.socket()), QV_HOST_ERROR_CLIENTS, 0);
    // The refused client has sent a request that the host does not read.
    const RawClient third(host.socket());
    static_cast<void>(third.send(frame(0, 1)));
    expectEnd(third, QV_HOST_ERROR_CLIENTS, 0);
    second.reset();
    bool admitted = false;
    for (int i = 0; i < 100'000 && !admitted; ++i) {
        const RawClient next(host.socket());
        const std::optional<RawAnswer> answer =
            next.send(frame(0, 1)) ? next.receive() : std::nullopt;
        admitted = answer && answer->code == QV_OK;
    }
    EXPECT_TRUE(admitted);
    EXPECT_TRUE(first.works());
}

TEST(ServeBadClients, LimitOfOpenFilesBoundsTheClients) {
    HostProcess host;
    host.setPreparation([] {
        const rlimit few = {200, 200};
        ::setrlimit(RLIMIT_NOFILE, &few);
    });
    // The threads have descriptors of their own, which no client may take.
    ASSERT_TRUE(host.start({"--threads", "25"}));
    std::vector<std::unique_ptr<RawClient>> clients;
    std::string refusal;
    while (refusal.empty() && clients.size() < 200) {
        clients.push_back(std::make_unique<RawClient>(host.socket()));
        static_cast<void>(clients.back()->send(frame(0, 1)));
        refusal = clients.back()->receive()->bytes;
    }
    clients.pop_back();
    EXPECT_THAT(refusal, HasSubstr("clients are connected"));
    const uint64_t limit = statusOf(*clients.front()).client_limit();
    EXPECT_THAT(host.errors(), HasSubstr("warning: the limit of open files allows " +
                                         std::to_string(limit) + " clients, not 1024"));
    EXPECT_LE(clients.size(), limit);
    // Places for root are kept if the host is not root.
    EXPECT_GE(clients.size(), limit - limit / 16);
    registerServices(*clients.front(), {{1, "a"}});
    sync(*clients.back());
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
}

#ifndef QV_SANITIZED  // sanitizers need more memory themselves
TEST(ServeBadClients, RequestWithoutMemoryForItIsRefused) {
    HostProcess host;
    // Without this, each thread would reserve memory that it may need later.
    host.setVariable("MALLOC_ARENA_MAX", "1");
    host.setPreparation([] {
        const rlimit little = {400U << 20U, 400U << 20U};
        ::setrlimit(RLIMIT_AS, &little);
    });
    ASSERT_TRUE(host.start({"--max-message", "2147483647"}));
    const RawClient other(host.socket());
    const RawClient client(host.socket());
    const std::string part(16U << 20U, 'x');
    bool sent = client.send(announced(3, 1U << 30U));
    for (int i = 0; i < 64 && sent; ++i) {
        sent = client.send(part);
    }
    EXPECT_FALSE(sent);
    expectEnd(client, QV_HOST_ERROR_LENGTH, 3);
    EXPECT_TRUE(other.works());
}
#endif

}  // namespace
}  // namespace qv::host
