// SPDX-License-Identifier: Apache-2.0

// Tests the host under a service manager.
#include <QvFrame.h>
#include <QvPlugin.h>
#include <QvSystem/UnixAddress.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#ifdef __linux__
#include <sys/ptrace.h>
#include <sys/wait.h>
#endif

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "qvhost/server/DirectoryRequests.h"
#include "qvhost/server/NotifySocket.h"
#include "qvhost/server/Pipe.h"

namespace qv::host {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

int listeningSocket(const std::string& path) {
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = system::unixAddress(path);
    EXPECT_EQ(::bind(descriptor, system::generic(address), sizeof address), 0);
    EXPECT_EQ(::listen(descriptor, 10), 0);
    return descriptor;
}

TEST(ServeManager, IsToldWhatTheHostDoes) {
    HostProcess host;
    const NotifySocket manager(host);
    // The host also counts its clients this often.
    ASSERT_TRUE(host.start({"--frame-timeout", "0.04"}));
    const std::string serving = "STATUS=serving on " + host.socket() + ", services: 0, clients: ";
    EXPECT_EQ(manager.receive(), "READY=1\n" + serving + "0");
    auto client = std::make_unique<RawClient>(host.socket());
    EXPECT_EQ(manager.receive(), serving + "1");
    client.reset();
    EXPECT_EQ(manager.receive(), serving + "0");
    host.signal(SIGHUP);
    EXPECT_THAT(manager.receive(), HasSubstr("RELOADING=1\n"));
    EXPECT_EQ(manager.receive(), "READY=1\n" + serving + "0");
    host.signal(SIGTERM);
    EXPECT_EQ(manager.receive(), "STOPPING=1\nSTATUS=stopping");
    EXPECT_EQ(host.wait(), 0);
}

TEST(ServeManager, HearsThatTheHostIsAliveIfItWatchesTheHost) {
    HostProcess host;
    const NotifySocket manager(host);
    host.disturbPlugin("");
    host.setVariable("WATCHDOG_USEC", "10000000");
    Pipe pipe(host);
    ASSERT_TRUE(host.start({"--frame-timeout", "0.04"}));
    const RawClient client(host.socket());
    host.setBehaviour("request waits at the pipe");
    ASSERT_TRUE(client.send(frame(QV_COMMAND_SET_DEBUG_LEVEL, 1, kLevelInput)));
    pipe.meetRequest();
    // A plug-in that hangs is no reason to end a host that serves.
    for (int i = 0; i < 10; ++i) {
        manager.waitFor("WATCHDOG=1");
    }
    host.setBehaviour("");
}

#ifdef __linux__
// Stops and continues all threads of the host but the first one, which talks to the manager.
class OtherThreads {
  public:
    explicit OtherThreads(pid_t host) {
        const std::string tasks = "/proc/" + std::to_string(host) + "/task";
        for (const auto& task : std::filesystem::directory_iterator(tasks)) {
            const pid_t thread = std::stoi(task.path().filename());
            if (thread != host) {
                threads_.push_back(thread);
            }
        }
    }

    bool stop() const {
        for (const pid_t thread : threads_) {
            if (::ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0 ||
                ::ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) != 0 ||
                ::waitpid(thread, nullptr, __WALL) != thread) {
                return false;
            }
        }
        return true;
    }

    void goOn() const {
        for (const pid_t thread : threads_) {
            EXPECT_EQ(::ptrace(PTRACE_DETACH, thread, nullptr, nullptr), 0);
        }
    }

  private:
    std::vector<pid_t> threads_;
};

TEST(ServeManager, HearsNothingWhileClientsAreNotAnswered) {
    HostProcess host;
    const NotifySocket manager(host);
    host.setVariable("WATCHDOG_USEC", "10000000");
    ASSERT_TRUE(host.start({"--frame-timeout", "0.4"}));
    const OtherThreads threads(host.process());
    if (!threads.stop()) {
        GTEST_SKIP() << "the threads of a process cannot be stopped here";
    }
    // The manager hears of new clients, and before that of the host, if the host is alive.
    std::vector<RawClient> clients;
    const auto connect = [&] {
        clients.emplace_back(host.socket());
        return "clients: " + std::to_string(clients.size());
    };
    manager.waitFor(connect());
    EXPECT_THAT(manager.receive(), HasSubstr(connect()));
    EXPECT_THAT(manager.receive(), HasSubstr(connect()));
    threads.goOn();
    manager.waitFor("WATCHDOG=1");
    EXPECT_TRUE(clients.front().works());
}
#endif

TEST(ServeManager, PassedSocketIsServedWithItsWaitingClients) {
    HostProcess host;
    const std::string path = host.files().path("passed.sock");
    const int descriptor = listeningSocket(path);
    const RawClient early(path);
    ASSERT_TRUE(early.send(frame(QV_HOST_COMMAND_PING, 1)));
    host.passSockets({descriptor});
    ASSERT_TRUE(host.start());
    EXPECT_EQ(early.receive()->number, 1U);
    EXPECT_FALSE(std::filesystem::exists(host.socket()));
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(host.errors(), EndsWith("qvhost: serving on " + path + "\n"));
    // The socket still listens. The next host serves clients that connect meanwhile.
    const RawClient meanwhile(path);
    ASSERT_TRUE(meanwhile.send(frame(QV_HOST_COMMAND_PING, 2)));
    ASSERT_TRUE(host.start());
    EXPECT_EQ(meanwhile.receive()->number, 2U);
    ::close(descriptor);
}

TEST(ServeManager, PassedDescriptorThatDoesNotListenIsRefused) {
    HostProcess host;
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    host.passSockets({ends[0]});
    EXPECT_FALSE(host.start());
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(), HasSubstr("no listening stream socket"));
    host.passSockets({ends[0], ends[1]});
    EXPECT_FALSE(host.start());
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(), HasSubstr("2 sockets were passed"));
    ::close(ends[0]);
    ::close(ends[1]);
}

}  // namespace
}  // namespace qv::host
