// SPDX-License-Identifier: Apache-2.0

#include "ServerProcess.h"

#include <QvSystem/UnixAddress.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <system_error>
#include <utility>

namespace qv::bench {

namespace {

constexpr int kFirstPassed = 3;
// The sockets are moved to these descriptors while their final numbers are in use.
constexpr int kOutOfTheWay = 64;

int checked(int result, const char* what) {
    if (result == -1) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

// Adds a socket for the address. Port 0 lets the system choose a port.
void addSockets(std::vector<Descriptor>& sockets, const sockaddr* address, socklen_t size) {
    for (const int type : {SOCK_STREAM, SOCK_DGRAM}) {
        const int socket = ::socket(address->sa_family, type | SOCK_CLOEXEC, 0);
        if (socket == -1 && errno == EAFNOSUPPORT) {
            return;
        }
        sockets.emplace_back(checked(socket, "socket"));
        checked(bind(socket, address, size), "bind");
        if (type == SOCK_STREAM) {
            checked(listen(socket, SOMAXCONN), "listen");
        }
    }
}

[[noreturn]] void become(const std::vector<std::string>& command,
                         const std::vector<Descriptor>& sockets, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(EXIT_FAILURE);
    }
    std::vector<int> copies;
    copies.reserve(sockets.size());
    for (const Descriptor& socket : sockets) {
        copies.push_back(fcntl(socket.get(), F_DUPFD_CLOEXEC, kOutOfTheWay));
    }
    int place = kFirstPassed;
    for (const int copy : copies) {
        dup2(copy, place++);
    }
    setenv("LISTEN_FDS", std::to_string(sockets.size()).c_str(), 1);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    execv(arguments.front(), arguments.data());
    std::perror(arguments.front());
    _exit(EXIT_FAILURE);
}

}  // namespace

std::vector<Descriptor> listenOn(const std::string& path) {
    const sockaddr_un address = system::unixAddress(path);
    Descriptor socket(checked(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    checked(bind(socket.get(), system::generic(address), sizeof address), "bind");
    checked(listen(socket.get(), SOMAXCONN), "listen");
    std::vector<Descriptor> sockets;
    sockets.push_back(std::move(socket));
    return sockets;
}

void addLoopbackSockets(std::vector<Descriptor>& sockets) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addSockets(sockets, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    sockaddr_in6 address6 = {};
    address6.sin6_family = AF_INET6;
    address6.sin6_addr = in6addr_loopback;
    addSockets(sockets, reinterpret_cast<const sockaddr*>(&address6), sizeof address6);
}

ServerProcess::ServerProcess(const std::vector<std::string>& command,
                             const std::vector<Descriptor>& sockets)
    : process_(-1) {
    const pid_t parent = getpid();
    process_ = checked(fork(), "fork");
    if (process_ == 0) {
        become(command, sockets, parent);
    }
}

ServerProcess::~ServerProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

bool ServerProcess::hasEnded() const {
    siginfo_t ended = {};
    checked(waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOHANG | WNOWAIT),
            "waitid");
    return ended.si_pid == process_;
}

std::chrono::nanoseconds ServerProcess::processorTime() const {
    clockid_t clock = {};
    timespec time = {};
    if (clock_getcpuclockid(process_, &clock) != 0 || clock_gettime(clock, &time) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot read a server's clock");
    }
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace qv::bench
