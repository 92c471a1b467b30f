// SPDX-License-Identifier: Apache-2.0

#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "qvhost/server/DirectoryRequests.h"
#include "qvhost/server/NotifySocket.h"
#include "qvhost/server/Pipe.h"
#include "support/ConfigurationDocuments.h"
#include "support/Files.h"

namespace qv::host {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::string record(const HostProcess& host) {
    return readFile(host.files().path("record"));
}

void expectNothingLeft(const HostProcess& host) {
    EXPECT_FALSE(std::filesystem::exists(host.socket()));
    EXPECT_FALSE(std::filesystem::exists(host.socket() + ".lock"));
}

// A client that reads nothing, and whose answers exceed its socket.
RawClient deafClient(const HostProcess& host) {
    RawClient client(host.socket());
    registerServices(client, manyServices());
    EXPECT_TRUE(client.send(frame(QV_COMMAND_GET_SERVICES, 1)));
    pollfd begun = {client.descriptor(), POLLIN, 0};
    EXPECT_EQ(::poll(&begun, 1, 120'000), 1);
    return client;
}

// Keeps a client in the plug-in, which waits at the pipe.
void block(const HostProcess& host, const RawClient& client, Pipe& pipe) {
    host.setBehaviour("request waits at the pipe");
    ASSERT_TRUE(client.send(frame(QV_COMMAND_SET_DEBUG_LEVEL, 1, kLevelInput)));
    pipe.meetRequest();
}

void letGo(const HostProcess& host, Pipe& pipe) {
    host.setBehaviour("");
    pipe.letGo();
}

TEST(ServeStop, EitherSignalEndsItCleanly) {
    for (const int signal : {SIGTERM, SIGINT}) {
        HostProcess host;
        host.disturbPlugin("");
        ASSERT_TRUE(host.start());
        const RawClient idle(host.socket());
        EXPECT_TRUE(idle.works());
        host.signal(signal);
        EXPECT_EQ(host.wait(), 0);
        expectNothingLeft(host);
        EXPECT_THAT(record(host), EndsWith("finalize\n"));
        const std::vector<RawAnswer> answers = idle.receiveAll();
        ASSERT_THAT(answers, SizeIs(1));
        EXPECT_EQ(answers[0].code, uint32_t{QV_HOST_ERROR_STOPPING});
        EXPECT_EQ(answers[0].number, 0U);
    }
}

TEST(ServeStop, RequestsThatHaveArrivedAreAnsweredFirst) {
    HostProcess host;
    host.disturbPlugin("");
    Pipe pipe(host);
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    block(host, client, pipe);
    // The host does not read these requests yet.
    ASSERT_TRUE(client.send(frame(QV_COMMAND_REGISTER_SERVICES, 2, tests::encode({{1, "a"}})) +
                            frame(QV_COMMAND_GET_SERVICES, 3) +
                            frame(QV_COMMAND_REGISTER_SERVICES, 4, "whole").substr(0, 14)));
    host.signal(SIGTERM);
    manager.waitFor("STOPPING=1");
    letGo(host, pipe);
    const std::vector<RawAnswer> answers = client.receiveAll();
    ASSERT_THAT(answers, SizeIs(4));
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(answers[i].number, i + 1);
        EXPECT_EQ(answers[i].code, uint32_t{QV_OK});
    }
    EXPECT_EQ(tests::decode(answers[2].bytes), (tests::Services{{1, "a"}}));
    EXPECT_EQ(answers[3].number, 4U);
    EXPECT_EQ(answers[3].code, uint32_t{QV_HOST_ERROR_STOPPING});
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(record(host), EndsWith("finalize\n"));
    EXPECT_EQ(readFile(host.configuration()), tests::documentOf({{1, "a"}}));
}

TEST(ServeStop, FileCatchesUpFirst) {
    HostProcess host;
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    // The file follows a second after the start, so it does not hold these yet.
    registerServices(client, {{1, "a"}, {2, "b"}});
    withdraw(client, 1);
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(readFile(host.configuration()), tests::documentOf({{2, "b"}}));
}

TEST(ServeStop, NewClientsAreNotLetIn) {
    HostProcess host;
    host.disturbPlugin("");
    Pipe pipe(host);
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    block(host, client, pipe);
    host.signal(SIGTERM);
    bool refused = false;
    for (int i = 0; i < 1'000'000 && !refused; ++i) {
        try {
            const RawClient late(host.socket());
        } catch (const std::system_error&) {
            refused = true;
        }
    }
    EXPECT_TRUE(refused);
    letGo(host, pipe);
    EXPECT_EQ(client.receive()->code, uint32_t{QV_OK});
    EXPECT_EQ(host.wait(), 0);
}

TEST(ServeStop, SecondSignalDoesNotWaitForAClientThatDoesNotRead) {
    HostProcess host;
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start({"--stop-timeout", "1000"}));
    const RawClient deaf = deafClient(host);
    host.signal(SIGTERM);
    manager.waitFor("STOPPING=1");
    host.signal(SIGINT);
    EXPECT_EQ(host.wait(), 0);
    expectNothingLeft(host);
}

TEST(ServeStop, TimeOutCountsAsTheSecondSignal) {
    HostProcess host;
    ASSERT_TRUE(host.start({"--stop-timeout", "1"}));
    const RawClient deaf = deafClient(host);
    // The second time-out must find nothing left to save.
    sync(RawClient(host.socket()));
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    expectNothingLeft(host);
}

TEST(ServeStop, ThirdSignalDoesNotWaitForThePlugin) {
    HostProcess host;
    host.disturbPlugin("");
    Pipe pipe(host);
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start({"--stop-timeout", "1000"}));
    const RawClient client(host.socket());
    registerServices(client, {{1, "a"}});
    block(host, client, pipe);
    host.signal(SIGTERM);
    manager.waitFor("STOPPING=1");
    host.signal(SIGINT);
    EXPECT_THAT(client.receiveAll(), IsEmpty());
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(), HasSubstr("the plug-in does not come back from a call"));
    expectNothingLeft(host);
    host.setBehaviour("");
    ASSERT_TRUE(host.start());
    EXPECT_EQ(listed(RawClient(host.socket())), (tests::Services{{1, "a"}}));
}

TEST(ServeStop, TimeOutsCountAsTheSecondAndTheThirdSignal) {
    HostProcess host;
    host.disturbPlugin("");
    Pipe pipe(host);
    ASSERT_TRUE(host.start({"--stop-timeout", "0.05"}));
    const RawClient client(host.socket());
    block(host, client, pipe);
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 1);
    expectNothingLeft(host);
}

TEST(ServeStop, FailingFinalisationIsReported) {
    HostProcess host;
    host.disturbPlugin("finalize throws text");
    ASSERT_TRUE(host.start());
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(host.errors(), HasSubstr("cannot finalise"));
    expectNothingLeft(host);
}

TEST(ServeReload, AdoptsAnEditedFile) {
    HostProcess host;
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    registerServices(client, {{1, "a"}});
    sync(client);
    tests::replaceFile(host.configuration(), tests::documentOf({{2, "edited"}}));
    manager.waitFor("READY=1");
    host.signal(SIGHUP);
    EXPECT_THAT(manager.waitFor("RELOADING=1"),
                testing::ContainsRegex("^RELOADING=1\nMONOTONIC_USEC=[0-9]+\n"));
    manager.waitFor("READY=1");
    EXPECT_EQ(listed(client), (tests::Services{{2, "edited"}}));
}

TEST(ServeReload, KeepsWhatClientsChanged) {
    HostProcess host;
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    registerServices(client, {{1, "a"}, {2, "b"}});
    withdraw(client, 1);
    manager.waitFor("READY=1");
    host.signal(SIGHUP);
    manager.waitFor("READY=1");
    EXPECT_EQ(listed(client), (tests::Services{{2, "b"}}));
    EXPECT_EQ(readFile(host.configuration()), tests::documentOf({{2, "b"}}));
}

// The layer before the plug-in ends the host if a request meets a reload.
TEST(ServeReload, UnderLoadEveryRequestIsAnswered) {
    HostProcess host;
    host.disturbPlugin("");
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    manager.waitFor("READY=1");
    std::atomic<bool> done = false;
    constexpr int32_t kClients = 8;
    std::vector<std::thread> clients;
    clients.reserve(kClients);
    for (int32_t id = 0; id < kClients; ++id) {
        clients.emplace_back([&host, &done, id] {
            const RawClient client(host.socket());
            int32_t round = 0;
            do {
                const std::string address = std::to_string(++round);
                registerServices(client, {{id, address}});
                expectDone(client, QV_COMMAND_SET_DEBUG_LEVEL, kLevelInput);
                ASSERT_THAT(listed(client), testing::Contains(tests::Service(id, address)));
            } while (!done);
        });
    }
    for (int reload = 0; reload < 20; ++reload) {
        host.signal(SIGHUP);
        manager.waitFor("READY=1");
    }
    done = true;
    for (std::thread& client : clients) {
        client.join();
    }
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
}

TEST(ServeReload, DelaysNobody) {
    HostProcess host;
    host.disturbPlugin("");
    Pipe pipe(host);
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start({"--threads", "1"}));
    const RawClient client(host.socket());
    EXPECT_TRUE(client.works());
    manager.waitFor("READY=1");
    host.setBehaviour("initialize waits at the pipe");
    host.signal(SIGHUP);
    pipe.meetRequest();
    expectService(client, 1);
    expectService(RawClient(host.socket()), 3);
    letGo(host, pipe);
    manager.waitFor("READY=1");
    EXPECT_EQ(listed(client), (tests::Services{{2, "b"}, {4, "b"}}));
}

TEST(ServeReload, SeveralSignalsThatWaitAreOneReload) {
    HostProcess host;
    host.disturbPlugin("");
    Pipe pipe(host);
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    manager.waitFor("READY=1");
    const RawClient client(host.socket());
    block(host, client, pipe);
    for (int i = 0; i < 3; ++i) {
        host.signal(SIGHUP);
        manager.waitFor("RELOADING=1");
    }
    letGo(host, pipe);
    for (int i = 0; i < 3; ++i) {
        manager.waitFor("READY=1");
    }
    const std::string calls = record(host);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), 'f'), 1) << calls;
}

TEST(ServeReload, HostStopsAlthoughARequestDelaysTheReload) {
    HostProcess host;
    host.disturbPlugin("");
    Pipe pipe(host);
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    block(host, client, pipe);
    host.signal(SIGHUP);
    manager.waitFor("RELOADING=1");
    host.signal(SIGTERM);
    manager.waitFor("STOPPING=1");
    letGo(host, pipe);
    EXPECT_EQ(client.receive()->code, uint32_t{QV_OK});
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(record(host), EndsWith("finalize\n"));
}

TEST(ServeReload, FailureIsReportedAndTriedAgain) {
    HostProcess host;
    host.disturbPlugin("");
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    manager.waitFor("READY=1");
    const RawClient client(host.socket());
    registerServices(client, {{10, "kept"}});
    host.setBehaviour("initialize throws text");
    host.signal(SIGHUP);
    EXPECT_THAT(manager.waitFor("READY=1"), HasSubstr("the plug-in's file is behind: cannot ini"));
    EXPECT_TRUE(host.waitForError("cannot initialise"));
    expectService(client, 1);
    EXPECT_THAT(listed(client), testing::Contains(tests::Service(10, "kept")));
    host.setBehaviour("");
    EXPECT_TRUE(host.waitForError("the directory is in its file again: "));
    EXPECT_EQ(readFile(host.configuration()), tests::documentOf({{2, "b"}, {10, "kept"}}));
    host.setBehaviour("initialize fails");
    host.signal(SIGHUP);
    manager.waitFor("READY=1");
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
}

}  // namespace
}  // namespace qv::host
