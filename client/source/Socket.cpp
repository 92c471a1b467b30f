// SPDX-License-Identifier: Apache-2.0

#include "Socket.h"

#include <QvSystem/UnixAddress.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>

namespace qv::client {

namespace {

#ifdef __APPLE__
constexpr int kSocketType = SOCK_STREAM;
constexpr int kFlags = MSG_DONTWAIT;
#else
constexpr int kSocketType = SOCK_STREAM | SOCK_CLOEXEC;
constexpr int kFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
#endif

std::string textOf(int error) {
    return std::generic_category().message(error);
}

Error cannotConnect(const std::string& path, int error) {
    return {Error::Kind::CannotConnect, error,
            "cannot reach the host at " + path + ": " + textOf(error)};
}

Error lost(int error) {
    return {Error::Kind::ConnectionLost, error,
            error == 0 ? "the host closed the connection"
                       : "the connection to the host was lost: " + textOf(error)};
}

sockaddr_un addressOf(const std::string& path) {
    try {
        return system::unixAddress(path);
    } catch (const std::system_error& error) {
        throw cannotConnect(path, error.code().value());
    }
}

// Bounds the time that connect() waits for a busy host. poll() does not cover this wait.
void boundConnecting(int descriptor, const Deadline& deadline) {
    if (deadline.exists()) {
        const int left = deadline.milliseconds();
        timeval time = {};
        time.tv_sec = left / 1000;
        time.tv_usec = left > 0 ? left % 1000 * 1000 : 1;
        setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
    }
}

void connectBy(const Deadline& deadline, int descriptor, const sockaddr_un& address,
               const std::string& path) {
    do {
        boundConnecting(descriptor, deadline);
        if (connect(descriptor, system::generic(address), sizeof address) == 0) {
            return;
        }
        if (errno != EINTR && errno != EAGAIN) {
            throw cannotConnect(path, errno);
        }
    } while (!deadline.hasPassed());
    throw Error(Error::Kind::TimedOut, 0,
                "cannot reach the host at " + path + ": it takes no connection in time");
}

// Returns the user who made the socket listen at the other end.
uid_t listenerOf(int descriptor, const std::string& path) {
#ifdef __APPLE__
    uid_t user = 0;
    gid_t group = 0;
    if (getpeereid(descriptor, &user, &group) != 0) {
        throw cannotConnect(path, errno);
    }
    return user;
#else
    ucred credentials = {};
    socklen_t size = sizeof credentials;
    if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        throw cannotConnect(path, errno);
    }
    return credentials.uid;
#endif
}

void checkHostUser(int descriptor, uid_t wanted, const std::string& path) {
    const uid_t user = listenerOf(descriptor, path);
    if (user != wanted && user != 0) {
        throw Error(Error::Kind::WrongHost, static_cast<int32_t>(user),
                    "the host at " + path + " runs as user " + std::to_string(user) +
                        ", not as user " + std::to_string(wanted) + " or root");
    }
}

}  // namespace

Socket::Socket(const ClientOptions& options, const Deadline& deadline) {
    const std::string& path = options.socketPath;
    const sockaddr_un address = addressOf(path);
    descriptor_.reset(socket(AF_UNIX, kSocketType, 0));
    if (!descriptor_) {
        throw cannotConnect(path, errno);
    }
#ifdef __APPLE__
    const int yes = 1;
    setsockopt(descriptor_.get(), SOL_SOCKET, SO_NOSIGPIPE, &yes, sizeof yes);
    fcntl(descriptor_.get(), F_SETFD, FD_CLOEXEC);
#endif
    connectBy(deadline, descriptor_.get(), address, path);
    if (options.hostUser) {
        checkHostUser(descriptor_.get(), *options.hostUser, path);
    }
}

bool Socket::isReadable() const {
    pollfd entry = {descriptor_.get(), POLLIN, 0};
    int ready = -1;
    do {
        ready = poll(&entry, 1, 0);
    } while (ready == -1 && errno == EINTR);
    return ready > 0;
}

// Waits for any of the events and stores those that came.
void Socket::wait(short& events, const Deadline& deadline) const {
    while (true) {
        pollfd entry = {descriptor_.get(), events, 0};
        const int ready = poll(&entry, 1, deadline.milliseconds());
        if (ready > 0) {
            events = entry.revents;
            return;
        }
        if (ready == -1 && errno != EINTR) {
            throw lost(errno);
        }
        if (deadline.hasPassed()) {
            throw Error(Error::Kind::TimedOut, 0, "the host did not answer in time");
        }
    }
}

std::size_t Socket::send(std::string_view bytes, const Deadline& deadline) const {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        short events = POLLIN | POLLOUT;
        wait(events, deadline);
        if ((events & ~POLLOUT) != 0) {
            break;
        }
        const std::optional<std::size_t> count = sendSome(bytes.substr(sent));
        if (!count) {
            break;
        }
        sent += *count;
    }
    return sent;
}

std::optional<std::size_t> Socket::sendSome(std::string_view bytes) const {
    while (true) {
        const ssize_t count = ::send(descriptor_.get(), bytes.data(), bytes.size(), kFlags);
        if (count >= 0) {
            return static_cast<std::size_t>(count);
        }
        if (errno == EPIPE || errno == ECONNRESET) {
            return std::nullopt;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return 0;
        }
        if (errno != EINTR) {
            throw lost(errno);
        }
    }
}

std::size_t Socket::receiveSome(char* bytes, std::size_t size) const {
    while (true) {
        const ssize_t count = recv(descriptor_.get(), bytes, size, kFlags);
        if (count > 0) {
            return static_cast<std::size_t>(count);
        }
        if (count == 0) {
            throw lost(0);
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return 0;
        }
        if (errno != EINTR) {
            throw lost(errno);
        }
    }
}

void Socket::waitUntilReadable(const Deadline& deadline) const {
    short events = POLLIN;
    wait(events, deadline);
}

}  // namespace qv::client
