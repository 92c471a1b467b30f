// SPDX-License-Identifier: Apache-2.0

#include "server/NewFile.h"

#include <QvSystem/Descriptor.h>
#include <QvSystem/Directories.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace qv::host {

namespace {

namespace fs = std::filesystem;

constexpr mode_t kFileMode = 0600;
constexpr mode_t kDirectoryMode = 0750;
constexpr mode_t kPrivateMode = 0700;
constexpr mode_t kAllModes = 07777;
constexpr int kMostLinks = 40;  // that the system follows, too

void check(bool succeeded, const std::string& attempt) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), "cannot " + attempt);
    }
}

// Holds back signals for as long as the object lives.
class HeldBackSignals {
  public:
    HeldBackSignals() {
        sigemptyset(&held_);
        for (const int signal : kSignals) {
            struct sigaction action = {};
            if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
                sigaddset(&held_, signal);
            }
        }
        pthread_sigmask(SIG_BLOCK, &held_, &previous_);
    }
    ~HeldBackSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
    HeldBackSignals(const HeldBackSignals&) = delete;
    HeldBackSignals& operator=(const HeldBackSignals&) = delete;

    bool oneArrived() const {
        sigset_t pending;
        sigemptyset(&pending);
        sigpending(&pending);
        return std::any_of(std::begin(kSignals), std::end(kSignals), [&](int signal) {
            return sigismember(&held_, signal) == 1 && sigismember(&pending, signal) == 1;
        });
    }

  private:
    static constexpr int kSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

    sigset_t held_{};
    sigset_t previous_{};
};

void syncDirectory(const std::string& directory) {
    const std::string attempt = "write the directory " + directory;
    const system::Descriptor file(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A user may be allowed to make files in a directory that he may not read.
    if (!file && errno == EACCES) {
        return;
    }
    check(static_cast<bool>(file), attempt);
    // EINVAL means that the file system has nothing to write there.
    check(fsync(file.get()) == 0 || errno == EINVAL, attempt);
}

// Makes a directory and those above it that are missing. The destructor removes them again, unless
// they are to be kept.
class NewDirectories {
  public:
    explicit NewDirectories(const std::string& directory)
        : made_(system::makeDirectories(directory, kDirectoryMode)) {}
    ~NewDirectories() {
        std::for_each(made_.rbegin(), made_.rend(),
                      [](const std::string& directory) { rmdir(directory.c_str()); });
    }
    NewDirectories(const NewDirectories&) = delete;
    NewDirectories& operator=(const NewDirectories&) = delete;

    // Makes one further directory, unless something stands there.
    void add(std::string directory, mode_t mode) {
        made_.reserve(made_.size() + 1);
        if (mkdir(directory.c_str(), mode) == 0) {
            made_.push_back(std::move(directory));
        } else {
            check(errno == EEXIST, "make the directory " + directory);
        }
    }

    void sync() const {
        for (const std::string& directory : made_) {
            syncDirectory(system::directoryOf(directory));
        }
    }

    void keep() { made_.clear(); }

  private:
    std::vector<std::string> made_;
};

// Writes the content to a file beside its later place. The destructor removes the file, unless it
// is put in place.
class TemporaryFile {
  public:
    // Gives the file a name of its own.
    explicit TemporaryFile(const std::string& path)
        : path_(path),
          name_(nameFor(path, ".XXXXXX")),
          descriptor_(mkostemp(name_.data(), O_CLOEXEC)) {
        check(static_cast<bool>(descriptor_), attempt());
    }

    // Gives the file a name that only depends on the path. Removes what has this name.
    static TemporaryFile replacing(const std::string& path) {
        std::string name = nameFor(path, ".new");
        unlink(name.c_str());
        system::Descriptor descriptor(
            open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode));
        return {path, std::move(name), std::move(descriptor)};
    }

    ~TemporaryFile() {
        if (!name_.empty()) {
            unlink(name_.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // `owner` is the file whose mode and owner the new file gets, or null.
    void write(std::string_view content, const struct stat* owner = nullptr) const {
        while (!content.empty()) {
            const ssize_t written = ::write(descriptor_.get(), content.data(), content.size());
            check(written >= 0 || errno == EINTR, attempt());
            content.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
        }
        struct stat own = {};
        check(fstat(descriptor_.get(), &own) == 0, attempt());
        if (owner != nullptr && (own.st_uid != owner->st_uid || own.st_gid != owner->st_gid)) {
            check(fchown(descriptor_.get(), owner->st_uid, owner->st_gid) == 0, attempt());
        }
        // The umask must not count.
        const mode_t mode = owner == nullptr ? kFileMode : owner->st_mode & kAllModes;
        check(fchmod(descriptor_.get(), mode) == 0, attempt());
        check(fsync(descriptor_.get()) == 0, attempt());
    }

    void putInPlace() {
        if (link(name_.c_str(), path_.c_str()) == 0) {
            unlink(name_.c_str());
        } else {
            check(errno != EEXIST, attempt());
            // The file system may have no hard links.
#ifdef __APPLE__
            const int result = renamex_np(name_.c_str(), path_.c_str(), RENAME_EXCL);
#else
            const int result =
                renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, path_.c_str(), RENAME_NOREPLACE);
#endif
            check(result == 0, attempt());
        }
        name_.clear();
    }

    void replace() {
        check(rename(name_.c_str(), path_.c_str()) == 0, attempt());
        name_.clear();
    }

  private:
    TemporaryFile(std::string path, std::string name, system::Descriptor descriptor)
        : path_(std::move(path)), name_(std::move(name)), descriptor_(std::move(descriptor)) {
        check(static_cast<bool>(descriptor_), attempt());
    }

    static std::string nameFor(const std::string& path, const char* ending) {
        return system::directoryOf(path) + "/." + fs::path(path).filename().string() + ending;
    }

    std::string attempt() const {
        return "make " + path_;
    }

    std::string path_;
    std::string name_;
    system::Descriptor descriptor_;
};

// Returns the path behind the symbolic links at the end of a path, whether or not a file is there.
std::string behindLinks(std::string path) {
    for (int links = 0; links < kMostLinks; ++links) {
        std::error_code error;
        const fs::path target = fs::read_symlink(path, error);
        if (error) {
            // What is no link is reported when it is used.
            return path;
        }
        path = fs::path(system::directoryOf(path)) / target;
    }
    errno = ELOOP;
    check(false, "make " + path);
    return path;
}

}  // namespace

void makeNewFile(const std::string& path, std::string_view content,
                 const std::string& privateDirectory) {
    const HeldBackSignals signals;
    NewDirectories directories(system::directoryOf(path));
    if (!privateDirectory.empty()) {
        directories.add(privateDirectory, kPrivateMode);
    }
    directories.sync();
    TemporaryFile file(path);
    file.write(content);
    errno = EINTR;
    check(!signals.oneArrived(), "make " + path);
    file.putInPlace();
    try {
        syncDirectory(system::directoryOf(path));
    } catch (const std::system_error&) {
        unlink(path.c_str());
        throw;
    }
    directories.keep();
}

void replaceFile(const std::string& path, std::string_view content) {
    const std::string target = behindLinks(path);
    const std::string attempt = "make " + target;
    struct stat old = {};
    const bool isNew = lstat(target.c_str(), &old) != 0;
    check(!isNew || errno == ENOENT, attempt);
    errno = S_ISDIR(old.st_mode) ? EISDIR : EINVAL;
    check(isNew || S_ISREG(old.st_mode), attempt);
    TemporaryFile file = TemporaryFile::replacing(target);
    file.write(content, isNew ? nullptr : &old);
    file.replace();
    syncDirectory(system::directoryOf(target));
}

}  // namespace qv::host
