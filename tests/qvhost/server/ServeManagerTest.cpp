// Tests the host under a service manager.
#include <QvFrame.h>
#include <QvSystem/UnixAddress.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <string>

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "qvhost/server/NotifySocket.h"

namespace qv::host {
namespace {

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
    const std::string serving = "STATUS=serving on " + host.socket() + ", clients: ";
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
    EXPECT_EQ(host.errors(), "qvhost: serving on " + path + "\n");
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
