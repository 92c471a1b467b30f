#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "qvhost/server/NotifySocket.h"
#include "qvhost/server/Pipe.h"
#include "support/LoadedPlugin.h"

namespace qv::host {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
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
    EXPECT_TRUE(client.send(frame(QV_COMMAND_GET_SERVICES, 1)));
    pollfd begun = {client.descriptor(), POLLIN, 0};
    EXPECT_EQ(::poll(&begun, 1, 120'000), 1);
    return client;
}

TEST(ServeStop, EitherSignalEndsItCleanly) {
    for (const int signal : {SIGTERM, SIGINT}) {
        HostProcess host;
        host.useFakePlugin("");
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
    host.useFakePlugin("request waits at the pipe");
    Pipe pipe(host);
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    ASSERT_TRUE(client.send(frame(QV_COMMAND_REGISTER_SERVICES, 1)));
    pipe.meetRequest();
    // The host does not read these requests yet.
    ASSERT_TRUE(client.send(frame(QV_COMMAND_GET_SERVICES, 2) +
                            frame(QV_COMMAND_REGISTER_SERVICES, 3, "whole").substr(0, 14)));
    host.signal(SIGTERM);
    manager.waitFor("STOPPING=1");
    host.setBehaviour("");
    pipe.letGo();
    const std::vector<RawAnswer> answers = client.receiveAll();
    ASSERT_THAT(answers, SizeIs(3));
    EXPECT_EQ(answers[0].number, 1U);
    EXPECT_EQ(answers[0].code, uint32_t{QV_OK});
    EXPECT_EQ(answers[1].number, 2U);
    EXPECT_EQ(answers[1].code, uint32_t{QV_OK});
    EXPECT_EQ(answers[2].number, 3U);
    EXPECT_EQ(answers[2].code, uint32_t{QV_HOST_ERROR_STOPPING});
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(record(host), EndsWith("0202 \nanswer\nfree\nfinalize\n"));
}

TEST(ServeStop, NewClientsAreNotLetIn) {
    HostProcess host;
    host.useFakePlugin("request waits at the pipe");
    Pipe pipe(host);
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    ASSERT_TRUE(client.send(frame(QV_COMMAND_REGISTER_SERVICES, 1)));
    pipe.meetRequest();
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
    pipe.letGo();
    EXPECT_EQ(client.receive()->code, uint32_t{QV_OK});
    EXPECT_EQ(host.wait(), 0);
}

TEST(ServeStop, SecondSignalDoesNotWaitForAClientThatDoesNotRead) {
    HostProcess host;
    host.useFakePlugin("answers at length");
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
    host.useFakePlugin("answers at length");
    ASSERT_TRUE(host.start({"--stop-timeout", "0.05"}));
    const RawClient deaf = deafClient(host);
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(record(host), EndsWith("free\nfinalize\n"));
}

TEST(ServeStop, ThirdSignalDoesNotWaitForThePlugin) {
    HostProcess host;
    host.useFakePlugin("request waits at the pipe");
    Pipe pipe(host);
    ASSERT_TRUE(host.start({"--stop-timeout", "0.05", "--threads", "1"}));
    const RawClient client(host.socket());
    ASSERT_TRUE(client.send(frame(QV_COMMAND_REGISTER_SERVICES, 1)));
    pipe.meetRequest();
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(), HasSubstr("the plug-in does not come back from a request"));
    expectNothingLeft(host);
}

TEST(ServeStop, FailingFinalisationIsAFailure) {
    HostProcess host;
    host.useFakePlugin("finalize throws text");
    ASSERT_TRUE(host.start());
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(), HasSubstr("cannot finalise"));
    expectNothingLeft(host);
}

TEST(ServeReload, ReadsTheFileAgain) {
    HostProcess host;
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    ASSERT_TRUE(client.ask(QV_COMMAND_REGISTER_SERVICES, 1, tests::encode({{1, "a"}})));
    ASSERT_TRUE(client.ask(QV_COMMAND_UNREGISTER_SERVICES, 2, tests::encode({{1, ""}})));
    EXPECT_EQ(client.ask(QV_COMMAND_GET_SERVICES, 3)->bytes, "");
    manager.waitFor("READY=1");
    host.signal(SIGHUP);
    EXPECT_THAT(manager.waitFor("RELOADING=1"),
                testing::ContainsRegex("^RELOADING=1\nMONOTONIC_USEC=[0-9]+\n"));
    manager.waitFor("READY=1");
    // A removal is not saved, so the service is back.
    EXPECT_EQ(tests::decode(client.ask(QV_COMMAND_GET_SERVICES, 4)->bytes),
              (tests::Services{{1, "a"}}));
}

// The fake plug-in ends the host if a request meets a reload.
TEST(ServeReload, UnderLoadEveryRequestIsAnswered) {
    for (const bool fake : {true, false}) {
        HostProcess host;
        if (fake) {
            host.useFakePlugin("");
        }
        const NotifySocket manager(host);
        ASSERT_TRUE(host.start());
        manager.waitFor("READY=1");
        std::atomic<bool> done = false;
        std::vector<std::thread> clients;
        for (uint32_t i = 0; i < 8; ++i) {
            clients.emplace_back([&host, &done] {
                const RawClient client(host.socket());
                uint32_t number = 0;
                do {
                    const std::optional<RawAnswer> answer =
                        client.ask(QV_COMMAND_GET_SERVICES, ++number);
                    ASSERT_TRUE(answer);
                    ASSERT_EQ(answer->code, uint32_t{QV_OK});
                    ASSERT_EQ(answer->number, number);
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
}

TEST(ServeReload, WaitsForTheRequestThatIsExecuted) {
    HostProcess host;
    host.useFakePlugin("request waits at the pipe");
    Pipe pipe(host);
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    ASSERT_TRUE(client.send(frame(QV_COMMAND_REGISTER_SERVICES, 1)));
    pipe.meetRequest();
    host.signal(SIGHUP);
    manager.waitFor("RELOADING=1");
    EXPECT_THAT(record(host), EndsWith("0200 \n"));
    pipe.letGo();
    manager.waitFor("READY=1");
    EXPECT_EQ(client.receive()->code, uint32_t{QV_OK});
    EXPECT_THAT(record(host), EndsWith("0200 \nfinalize\ninitialize\n"));
}

// The fake plug-in ends the host if a request comes too early.
TEST(ServeReload, RequestsWaitForIt) {
    HostProcess host;
    host.useFakePlugin("");
    Pipe pipe(host);
    ASSERT_TRUE(host.start({"--threads", "2"}));
    const RawClient client(host.socket());
    const RawClient other(host.socket());
    EXPECT_TRUE(client.works());
    host.setBehaviour("initialize waits at the pipe");
    host.signal(SIGHUP);
    pipe.meetRequest();
    ASSERT_TRUE(client.send(frame(QV_COMMAND_REGISTER_SERVICES, 1)));
    // A ping needs no plug-in and does not wait. Its answer shows that the host has read the
    // request before it.
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(other.works());
    }
    EXPECT_THAT(record(host), EndsWith("finalize\ninitialize\n"));
    pipe.letGo();
    EXPECT_EQ(client.receive()->code, uint32_t{QV_OK});
    EXPECT_THAT(record(host), EndsWith("initialize\n0200 \n"));
}

TEST(ServeReload, HostStopsAlthoughARequestDelaysTheReload) {
    HostProcess host;
    host.useFakePlugin("request waits at the pipe");
    Pipe pipe(host);
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    ASSERT_TRUE(client.send(frame(QV_COMMAND_REGISTER_SERVICES, 1)));
    pipe.meetRequest();
    host.signal(SIGHUP);
    manager.waitFor("RELOADING=1");
    host.signal(SIGTERM);
    manager.waitFor("STOPPING=1");
    pipe.letGo();
    EXPECT_EQ(client.receive()->code, uint32_t{QV_OK});
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(record(host), EndsWith("finalize\n"));
}

TEST(ServeReload, FailureIsReportedAndCanBeTriedAgain) {
    HostProcess host;
    host.useFakePlugin("");
    const NotifySocket manager(host);
    ASSERT_TRUE(host.start());
    manager.waitFor("READY=1");
    const RawClient client(host.socket());
    host.setBehaviour("initialize throws text");
    host.signal(SIGHUP);
    EXPECT_THAT(manager.waitFor("READY=1"), HasSubstr("the plug-in failed to start again"));
    EXPECT_TRUE(host.waitForError("cannot initialise"));
    const std::optional<RawAnswer> answer = client.ask(QV_COMMAND_GET_SERVICES, 1);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_HOST_ERROR_PLUGIN});
    EXPECT_THAT(answer->bytes, HasSubstr("not initialised"));
    EXPECT_TRUE(client.works());
    host.setBehaviour("");
    host.signal(SIGHUP);
    EXPECT_THAT(manager.waitFor("READY=1"), HasSubstr("serving on"));
    EXPECT_EQ(client.ask(QV_COMMAND_GET_SERVICES, 2)->code, uint32_t{QV_OK});
    host.setBehaviour("initialize fails");
    host.signal(SIGHUP);
    manager.waitFor("READY=1");
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
}

}  // namespace
}  // namespace qv::host
