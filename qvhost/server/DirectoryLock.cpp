// SPDX-License-Identifier: Apache-2.0

#include "server/DirectoryLock.h"

#include <QvSystem/Directories.h>
#include <QvSystem/Files.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace qv::host {

namespace {

[[noreturn]] void fail(const std::string& attempt) {
    throw std::system_error(errno, std::generic_category(), attempt);
}

// Root would leave files that the owner's own host may not open. The owner could also put links in
// the way of root's files.
void refuseForeignDirectory(const std::string& directory) {
    struct stat status = {};
    if (::stat(directory.c_str(), &status) != 0) {
        fail("cannot look at the directory " + directory);
    }
    if (::geteuid() == 0 && status.st_uid != 0) {
        throw std::runtime_error(
            fmt::format("root does not use the directory {}, which belongs to the user {}; run "
                        "qvhost as that user",
                        directory, status.st_uid));
    }
}

// Returns " by the process PID with the socket PATH", as far as the holder has written that.
std::string holderOf(int file) {
    constexpr std::size_t kLongest = 65'536;
    std::string line;
    if (system::readAll(file, kLongest, line) || line.find('\n') == std::string::npos) {
        return "";
    }
    line.resize(line.find('\n'));
    const std::size_t space = line.find(' ');
    std::string process = " by the process " + line.substr(0, space);
    if (space == std::string::npos || space + 1 == line.size()) {
        return process;
    }
    return process + " with the socket " + line.substr(space + 1);
}

}  // namespace

DirectoryLock::DirectoryLock(const std::string& configurationFile, const std::string& socket) {
    refuseForeignDirectory(system::directoryOf(configurationFile));
    const std::string path = configurationFile + ".lock";
    constexpr int kFlags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    system::Descriptor file(::open(path.c_str(), kFlags, 0600));
    if (!file) {
        fail("cannot open the lock file " + path);
    }
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            fail("cannot lock the file " + path);
        }
        throw std::runtime_error(fmt::format("{} is in use{}, which holds the lock {}",
                                             configurationFile, holderOf(file.get()), path));
    }
    // A host that cannot write its name has the lock all the same.
    const std::string holder = fmt::format("{} {}\n", ::getpid(), socket);
    if (::ftruncate(file.get(), 0) == 0) {
        static_cast<void>(!::write(file.get(), holder.data(), holder.size()));
    }
    file_ = std::move(file);
}

}  // namespace qv::host
