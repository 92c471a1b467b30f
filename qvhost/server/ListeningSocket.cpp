// SPDX-License-Identifier: Apache-2.0

#include "server/ListeningSocket.h"

#include <QvSystem/Descriptor.h>
#include <QvSystem/Directories.h>
#include <QvSystem/UnixAddress.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace qv::host {

namespace {

[[noreturn]] void fail(const std::string& attempt) {
    throw std::system_error(errno, std::generic_category(), attempt);
}

[[noreturn]] void refuse(const std::string& path, const char* problem) {
    throw std::runtime_error(path + ' ' + problem);
}

constexpr char kInUse[] = "is in use by another host";

sockaddr_un addressOf(const std::string& path) {
    try {
        return system::unixAddress(path);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::filename_too_long) {
            throw;
        }
        throw std::runtime_error(
            fmt::format("the socket's path is too long: {} has {} bytes, and the system takes {}",
                        path, path.size(), sizeof sockaddr_un().sun_path - 1));
    }
}

system::Descriptor makeSocket() {
    system::Descriptor made(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (!made || ::fcntl(made.get(), F_SETFD, FD_CLOEXEC) == -1 ||
        ::fcntl(made.get(), F_SETFL, O_NONBLOCK) == -1) {
        fail("cannot make a socket");
    }
    return made;
}

// Tells whether the open file is the one at the path.
bool isAt(int file, const std::string& path) {
    const system::FileIdentity open = system::identityOf(file);
    return open && open == system::identityOf(path.c_str());
}

// Tells whether a program listens at the path. A program that is no host takes no lock.
bool somebodyListens(const std::string& path) {
    const sockaddr_un address = addressOf(path);
    const system::Descriptor descriptor = makeSocket();
    if (::connect(descriptor.get(), system::generic(address), sizeof address) == 0 ||
        errno == EAGAIN) {
        return true;
    }
    if (errno != ECONNREFUSED && errno != ENOENT) {
        fail("cannot tell whether anybody listens on " + path);
    }
    return false;
}

}  // namespace

ListeningSocket::ListeningSocket(std::string path, bool forOwnerOnly)
    : path_(std::move(path)), forOwnerOnly_(forOwnerOnly) {
    static_cast<void>(addressOf(path_));
    try {
        takePath();
    } catch (...) {
        remove();
        throw;
    }
}

ListeningSocket::ListeningSocket(int descriptor) : descriptor_(descriptor) {
    sockaddr_un address = {};
    socklen_t size = sizeof address;
    int type = 0;
    socklen_t typeSize = sizeof type;
    int listens = 0;
    socklen_t listensSize = sizeof listens;
    if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        address.sun_family != AF_UNIX ||
        ::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &typeSize) != 0 ||
        type != SOCK_STREAM ||
        ::getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &listensSize) != 0 ||
        listens == 0) {
        throw std::runtime_error(
            "what was passed is no listening stream socket of the Unix domain");
    }
    if (size > offsetof(sockaddr_un, sun_path)) {
        const std::size_t length = size - offsetof(sockaddr_un, sun_path);
        path_.assign(address.sun_path, ::strnlen(address.sun_path, length));
    }
}

ListeningSocket::~ListeningSocket() {
    remove();
}

// Makes the file and what it needs. Has the lock before it touches the file.
void ListeningSocket::takePath() {
    const std::vector<std::string> made =
        system::makeDirectories(system::directoryOf(path_), forOwnerOnly_ ? 0750 : 0755);
    // Other users have to reach the socket, whatever the umask of the host is.
    for (const std::string& directory : made) {
        if (!forOwnerOnly_ && ::chmod(directory.c_str(), 0755) != 0) {
            fail("cannot open the directory " + directory + " to other users");
        }
    }
    if (!hasLock()) {
        takeLock();
    }
    makeWay();
    bind();
}

// Takes the lock. A host removes the lock file when it ends. So a second host may lock a file that
// has gone, while a third one makes a new file. Then try again.
void ListeningSocket::takeLock() {
    const std::string name = path_ + ".lock";
    for (;;) {
        system::Descriptor lock(
            ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!lock) {
            fail("cannot open " + name);
        }
        if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno == EWOULDBLOCK) {
                refuse(path_, kInUse);
            }
            fail("cannot lock " + name);
        }
        if (isAt(lock.get(), name)) {
            lock_ = std::move(lock);
            return;
        }
    }
}

// Tells whether the lock keeps other hosts away. The lock is worth nothing when its file has gone.
bool ListeningSocket::hasLock() const {
    return lock_ && isAt(lock_.get(), path_ + ".lock");
}

bool ListeningSocket::hasFile() const {
    return file_ && file_ == system::identityOf(path_.c_str());
}

void ListeningSocket::makeWay() const {
    struct stat present = {};
    if (::lstat(path_.c_str(), &present) != 0) {
        if (errno != ENOENT) {
            fail("cannot look at " + path_);
        }
        return;
    }
    if (!S_ISSOCK(present.st_mode)) {
        refuse(path_, "exists, is no socket and is left as it is");
    }
    if (somebodyListens(path_)) {
        refuse(path_, kInUse);
    }
    if (::unlink(path_.c_str()) != 0 && errno != ENOENT) {
        fail("cannot remove the socket that a host left, " + path_);
    }
}

void ListeningSocket::bind() {
    const sockaddr_un address = addressOf(path_);
    descriptor_ = makeSocket();
    if (::bind(descriptor_.get(), system::generic(address), sizeof address) != 0) {
        fail("cannot make the socket " + path_);
    }
    file_ = system::identityOf(path_.c_str());
    if (!file_) {
        fail("cannot look at the socket " + path_);
    }
    bound_ = true;
    // Nobody can connect before the socket listens. The umask belongs to all threads, so it stays.
    if (::chmod(path_.c_str(), forOwnerOnly_ ? 0600 : 0666) != 0) {
        fail("cannot set the mode of the socket " + path_);
    }
}

void ListeningSocket::listen() const {
    if (own() && ::listen(descriptor_.get(), SOMAXCONN) != 0) {
        fail("cannot listen on " + path_);
    }
}

int ListeningSocket::release() {
    return descriptor_.release();
}

system::Descriptor ListeningSocket::restore() {
    if (!own() || hasFile()) {
        return {};
    }
    takePath();
    listen();
    return std::move(descriptor_);
}

void ListeningSocket::remove() noexcept {
    try {
        if (std::exchange(bound_, false) && hasFile()) {
            static_cast<void>(::unlink(path_.c_str()));
        }
        if (hasLock()) {
            static_cast<void>(::unlink((path_ + ".lock").c_str()));
        }
    } catch (const std::exception&) {
        // There is no memory for a name. A lock file that stays does no harm.
    }
    lock_.reset();
}

}  // namespace qv::host
