// SPDX-License-Identifier: Apache-2.0

#include "server/ListeningSocket.h"

#include <QvSystem/Descriptor.h>
#include <QvSystem/UnixAddress.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "qvhost/RawClient.h"
#include "qvhost/TestFiles.h"
#include "support/ErrorText.h"
#include "support/FileModes.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using tests::errorTextOf;

constexpr bool kForOwner = true;
constexpr bool kForAll = false;

std::string bindingProblem(const std::string& path) {
    return errorTextOf([&] { const ListeningSocket socket(path, kForOwner); });
}

// Makes a socket as a killed host leaves it, at which nobody listens, or one at which somebody
// does.
int bindSocket(const std::string& path, int type = SOCK_STREAM) {
    const int descriptor = ::socket(AF_UNIX, type, 0);
    const sockaddr_un address = system::unixAddress(path);
    EXPECT_EQ(::bind(descriptor, system::generic(address), sizeof address), 0);
    return descriptor;
}

bool connects(const std::string& path) {
    try {
        const RawClient client(path);
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

TEST(ListeningSocket, ListensOnRequestAndIsRemovedAtItsEnd) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    {
        const ListeningSocket socket(path, kForOwner);
        EXPECT_TRUE(socket.own());
        EXPECT_EQ(socket.path(), path);
        EXPECT_FALSE(connects(path));
        socket.listen();
        EXPECT_TRUE(connects(path));
    }
    EXPECT_THAT(namesIn(files.path("")), testing::IsEmpty());
}

TEST(ListeningSocket, ModeDoesNotDependOnTheUmask) {
    const TestFiles files;
    for (const mode_t mask : {0000, 0022, 0777}) {
        const mode_t previous = ::umask(mask);
        {
            const ListeningSocket forOwner(files.path("owner.sock"), kForOwner);
            const ListeningSocket forAll(files.path("all.sock"), kForAll);
            EXPECT_EQ(tests::modeOf(files.path("owner.sock")), 0600U);
            EXPECT_EQ(tests::modeOf(files.path("all.sock")), 0666U);
        }
        EXPECT_EQ(::umask(previous), mask);
    }
}

TEST(ListeningSocket, MissingDirectoriesAreMade) {
    const TestFiles files;
    const mode_t previous = ::umask(0022);
    {
        const ListeningSocket forOwner(files.path("a/b/x.sock"), kForOwner);
        const ListeningSocket forAll(files.path("c/x.sock"), kForAll);
        EXPECT_EQ(tests::modeOf(files.path("a")), 0750U);
        EXPECT_EQ(tests::modeOf(files.path("a/b")), 0750U);
        EXPECT_EQ(tests::modeOf(files.path("c")), 0755U);
    }
    ::umask(previous);
}

TEST(ListeningSocket, UmaskDoesNotCloseTheDirectoriesToOthers) {
    const TestFiles files;
    const mode_t previous = ::umask(0077);
    {
        const ListeningSocket forOwner(files.path("a/x.sock"), kForOwner);
        const ListeningSocket forAll(files.path("b/c/x.sock"), kForAll);
        EXPECT_EQ(tests::modeOf(files.path("a")), 0700U);
        EXPECT_EQ(tests::modeOf(files.path("b")), 0755U);
        EXPECT_EQ(tests::modeOf(files.path("b/c")), 0755U);
    }
    ::umask(previous);
}

TEST(ListeningSocket, DirectoryThatCannotBeMadeIsNamed) {
    const TestFiles files;
    files.write("file", "");
    EXPECT_THAT(bindingProblem(files.path("file/a.sock")), HasSubstr("Not a directory"));
    EXPECT_THAT(bindingProblem(files.path("file/a/b.sock")),
                AllOf(HasSubstr("cannot make "), HasSubstr(files.path("file/a"))));
}

TEST(ListeningSocket, PathBeyondTheSystemsBoundIsNamed) {
    const TestFiles files;
    const std::string path = files.path(std::string(120, 'x'));
    EXPECT_THAT(bindingProblem(path), AllOf(HasSubstr("too long"), HasSubstr(path)));
    EXPECT_THAT(namesIn(files.path("")), testing::IsEmpty());
}

TEST(ListeningSocket, SocketOfAKilledHostIsReplaced) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    files.write("a.sock.lock", "");
    ::close(bindSocket(path));
    const ListeningSocket socket(path, kForOwner);
    socket.listen();
    EXPECT_TRUE(connects(path));
}

TEST(ListeningSocket, SocketOfAnotherHostIsLeftAlone) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    const ListeningSocket socket(path, kForOwner);
    EXPECT_EQ(bindingProblem(path), path + " is in use by another host");
    socket.listen();
    EXPECT_EQ(bindingProblem(path), path + " is in use by another host");
    EXPECT_TRUE(connects(path));
}

TEST(ListeningSocket, SocketAtWhichAnyProgramListensIsLeftAlone) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    const int other = bindSocket(path);
    ASSERT_EQ(::listen(other, 1), 0);
    EXPECT_EQ(bindingProblem(path), path + " is in use by another host");
    EXPECT_TRUE(connects(path));
    ::close(other);
    EXPECT_EQ(namesIn(files.path("")), std::vector<std::string>{"a.sock"});
}

TEST(ListeningSocket, AnythingButASocketIsLeftAlone) {
    const TestFiles files;
    files.write("file", "text");
    fs::create_directory(files.path("directory"));
    fs::create_symlink(files.path("nowhere"), files.path("link"));
    for (const char* name : {"file", "directory", "link"}) {
        EXPECT_EQ(bindingProblem(files.path(name)),
                  files.path(name) + " exists, is no socket and is left as it is");
        EXPECT_TRUE(fs::exists(fs::symlink_status(files.path(name))));
        EXPECT_FALSE(fs::exists(files.path(name) + std::string(".lock")));
    }
    EXPECT_EQ(readFile(files.path("file")), "text");
}

TEST(ListeningSocket, FileOfAnotherSocketStays) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    auto socket = std::make_unique<ListeningSocket>(path, kForOwner);
    fs::remove(path);
    files.write("a.sock", "of somebody else");
    socket.reset();
    EXPECT_EQ(readFile(path), "of somebody else");
}

TEST(ListeningSocket, IsNotRemovedTwice) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    ListeningSocket socket(path, kForOwner);
    socket.remove();
    EXPECT_FALSE(fs::exists(path));
    const ListeningSocket next(path, kForOwner);
    socket.remove();
    EXPECT_TRUE(fs::exists(path));
}

// Two hosts never have the socket at once.
TEST(ListeningSocket, OnlyOneOfHostsThatStartTogetherGetsIt) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    std::atomic<int> owners = 0;
    std::atomic<int> taken = 0;
    constexpr std::size_t kHosts = 4;
    std::vector<std::thread> hosts;
    hosts.reserve(kHosts);
    for (std::size_t i = 0; i < kHosts; ++i) {
        hosts.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                try {
                    const ListeningSocket socket(path, kForOwner);
                    EXPECT_EQ(++owners, 1);
                    socket.listen();
                    ++taken;
                    --owners;
                } catch (const std::runtime_error& error) {
                    EXPECT_THAT(error.what(), HasSubstr("is in use by another host"));
                }
            }
        });
    }
    for (std::thread& host : hosts) {
        host.join();
    }
    EXPECT_GE(taken, 4);
    EXPECT_THAT(namesIn(files.path("")), testing::IsEmpty());
}

// A host that serves at a path.
class Serving {
  public:
    explicit Serving(const std::string& path) : socket_(path, kForAll) {
        socket_.listen();
        descriptor_ = system::Descriptor(socket_.release());
    }

    bool restores() {
        system::Descriptor made = socket_.restore();
        if (!made) {
            return false;
        }
        descriptor_ = std::move(made);
        return true;
    }

  private:
    ListeningSocket socket_;
    system::Descriptor descriptor_;
};

TEST(ListeningSocket, FileThatIsThereIsNotMadeAgain) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    Serving host(path);
    EXPECT_FALSE(host.restores());
    EXPECT_TRUE(connects(path));
}

TEST(ListeningSocket, RemovedFileIsMadeAgain) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    const mode_t previous = ::umask(0777);
    {
        Serving host(path);
        fs::remove(path);
        EXPECT_TRUE(host.restores());
        EXPECT_TRUE(connects(path));
        EXPECT_EQ(tests::modeOf(path), 0666U);
        EXPECT_FALSE(host.restores());
        EXPECT_EQ(bindingProblem(path), path + " is in use by another host");
    }
    EXPECT_EQ(::umask(previous), 0777U);
    EXPECT_THAT(namesIn(files.path("")), testing::IsEmpty());
}

TEST(ListeningSocket, FileIsMadeAgainInTheMissingDirectory) {
    const TestFiles files;
    const std::string path = files.path("d/a.sock");
    {
        Serving host(path);
        fs::remove_all(files.path("d"));
        EXPECT_TRUE(host.restores());
        EXPECT_TRUE(connects(path));
        EXPECT_EQ(bindingProblem(path), path + " is in use by another host");
    }
    EXPECT_THAT(namesIn(files.path("d")), testing::IsEmpty());
}

TEST(ListeningSocket, SocketThatSomebodyLeftInThePlaceIsReplaced) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    Serving host(path);
    fs::remove(path);
    ::close(bindSocket(path));
    EXPECT_TRUE(host.restores());
    EXPECT_TRUE(connects(path));
}

TEST(ListeningSocket, OtherFileInThePlaceIsLeftAlone) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    Serving host(path);
    fs::remove(path);
    files.write("a.sock", "of somebody else");
    EXPECT_EQ(errorTextOf([&] { host.restores(); }),
              path + " exists, is no socket and is left as it is");
    EXPECT_EQ(readFile(path), "of somebody else");
    fs::remove(path);
    EXPECT_TRUE(host.restores());
}

TEST(ListeningSocket, PathThatAnotherHostTookIsLeftToIt) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    auto first = std::make_unique<Serving>(path);
    fs::remove(path);
    fs::remove(path + ".lock");
    Serving second(path);
    EXPECT_EQ(errorTextOf([&] { first->restores(); }), path + " is in use by another host");
    first.reset();
    EXPECT_FALSE(second.restores());
    EXPECT_TRUE(connects(path));
    EXPECT_TRUE(fs::exists(path + ".lock"));
}

TEST(ListeningSocket, PassedSocketIsUsedAndNotRemoved) {
    const TestFiles files;
    const std::string path = files.path("a.sock");
    const int passed = bindSocket(path);
    ASSERT_EQ(::listen(passed, 1), 0);
    {
        const ListeningSocket socket(passed);
        EXPECT_FALSE(socket.own());
        EXPECT_EQ(socket.path(), path);
        EXPECT_TRUE(connects(path));
        ListeningSocket gone(::dup(passed));
        fs::remove(path);
        EXPECT_FALSE(gone.restore());
        ::close(bindSocket(path));
    }
    EXPECT_TRUE(fs::exists(path));
}

TEST(ListeningSocket, PassedDescriptorMustBeAListeningStreamSocket) {
    const TestFiles files;
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const int udp = ::socket(AF_INET, SOCK_DGRAM, 0);
    for (const int descriptor : {ends[0], udp, bindSocket(files.path("silent")),
                                 bindSocket(files.path("d"), SOCK_DGRAM)}) {
        EXPECT_THAT(errorTextOf([&] { const ListeningSocket socket(descriptor); }),
                    HasSubstr("no listening stream socket"));
        ::close(descriptor);
    }
    ::close(ends[1]);
}

}  // namespace
}  // namespace qv::host
