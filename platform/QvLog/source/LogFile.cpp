// SPDX-License-Identifier: Apache-2.0

#include "LogFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "QvSystem/ThreadSafety.h"

namespace qv::log {
namespace {

constexpr off_t maximalSize = 10L * 1024 * 1024;
constexpr int olderFiles = 5;
constexpr mode_t fileMode = 0640;

// Held during a rotation by any handle of the process. Two handles on one file would otherwise
// shift the older files twice.
system::Mutex rotation;

// Repeats the call while a signal interrupts it, so that no record is lost.
template <class Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

bool hasRoom(off_t size, std::size_t length) {
    return size == 0 || size + static_cast<off_t>(length) <= maximalSize;
}

int openFile(const std::string& path, int access) {
    // O_NONBLOCK: waits neither for the reader of a pipe nor, later, for a terminal.
    constexpr int flags = O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    return uninterrupted([&] { return ::open(path.c_str(), access | flags, fileMode); });
}

// Returns whether the file ends with a part of a record. A full disk or a power failure leaves one.
bool endsInsideLine(int descriptor, off_t size) {
    char last = '\n';
    return size > 0 &&
           uninterrupted([&] { return ::pread(descriptor, &last, 1, size - 1); }) == 1 &&
           last != '\n';
}

}  // namespace

LogFile::LogFile(std::string path) : path_(std::move(path)) {
    const off_t size = open();
    if (size == kNowhere) {
        throw std::system_error(errno, std::generic_category(), path_);
    }
    // Only the first file is asked. A file that replaces it later may end with a record that
    // another handle is just writing.
    endsInsideLine_ = endsInsideLine(descriptor_.get(), size);
}

void LogFile::append(std::string line) {
    off_t size = follow();
    if (size != kNowhere && !hasRoom(size, line.size())) {
        size = makeRoom(line.size());
    }
    if (size == kNowhere) {
        return;
    }
    if (endsInsideLine_) {
        line.insert(line.begin(), '\n');
    }
    const ssize_t written =
        uninterrupted([&] { return ::write(descriptor_.get(), line.data(), line.size()); });
    if (written > 0) {
        endsInsideLine_ = line[static_cast<std::size_t>(written) - 1] != '\n';
    }
}

// Opens the file at the path if another file is open. Returns the size of the open file, or
// kNowhere if none can be opened.
off_t LogFile::follow() {
    struct stat status = {};
    if (!descriptor_) {
        return open();
    }
    if (uninterrupted([&] { return ::stat(path_.c_str(), &status); }) == 0) {
        return status.st_dev == device_ && status.st_ino == inode_ ? status.st_size : open();
    }
    // A host that gave up the right to search the directory may still write to the open file.
    return errno == EACCES && ::fstat(descriptor_.get(), &status) == 0 ? status.st_size : open();
}

off_t LogFile::open() {
    descriptor_.reset();
    system::Descriptor descriptor(openFile(path_, O_RDWR));
    if (!descriptor && errno == EACCES) {
        descriptor.reset(openFile(path_, O_WRONLY));
    }
    if (!descriptor) {
        return kNowhere;
    }
    struct stat status = {};
    if (::fstat(descriptor.get(), &status) != 0 ||
        !(S_ISREG(status.st_mode) || S_ISCHR(status.st_mode))) {
        errno = EINVAL;
        return kNowhere;
    }
    descriptor_ = std::move(descriptor);
    device_ = status.st_dev;
    inode_ = status.st_ino;
    endsInsideLine_ = false;
    return status.st_size;
}

// Makes room for `length` bytes: rotates, or empties the file if it cannot be renamed, because the
// newest records are the ones that people look for. Returns the size afterwards, or kNowhere.
off_t LogFile::makeRoom(std::size_t length) {
    const system::MutexLock lock(rotation);
    off_t size = follow();
    if (size == kNowhere || hasRoom(size, length)) {
        return size;
    }
    if (shiftOlderFiles()) {
        size = open();
        if (size == kNowhere || hasRoom(size, length)) {
            return size;
        }
    }
    if (uninterrupted([&] { return ::ftruncate(descriptor_.get(), 0); }) != 0) {
        return kNowhere;
    }
    endsInsideLine_ = false;
    return 0;
}

// Renames each file to the name of the next older one. A file that cannot be renamed is overwritten
// by the next younger one, or stays and the younger one is lost. Returns whether the path is free,
// also if another process has renamed the file.
bool LogFile::shiftOlderFiles() const {
    for (int age = olderFiles; age > 1; --age) {
        static_cast<void>(std::rename(olderFile(age - 1).c_str(), olderFile(age).c_str()));
    }
    return std::rename(path_.c_str(), olderFile(1).c_str()) == 0 || errno == ENOENT;
}

// Returns the name of an older file: "a/naming.1.log" for "a/naming.log" and age 1.
std::string LogFile::olderFile(int age) const {
    const std::size_t dot = path_.rfind('.');
    const std::size_t slash = path_.rfind('/');
    const std::size_t nameBegin = slash == std::string::npos ? 0 : slash + 1;
    const bool hasExtension = dot != std::string::npos && dot > nameBegin && dot + 1 < path_.size();
    const std::size_t end = hasExtension ? dot : path_.size();
    return path_.substr(0, end) + '.' + std::to_string(age) + path_.substr(end);
}

}  // namespace qv::log
