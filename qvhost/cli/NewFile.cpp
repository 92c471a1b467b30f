#include "cli/NewFile.h"

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
#include <vector>

namespace qv::host {

namespace {

namespace fs = std::filesystem;

constexpr mode_t kFileMode = 0600;
constexpr mode_t kDirectoryMode = 0750;

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

    void sync() const {
        for (const std::string& directory : made_) {
            syncDirectory(system::directoryOf(directory));
        }
    }

    void keep() { made_.clear(); }

  private:
    std::vector<std::string> made_;
};

// Writes the content to a file with a name of its own. The destructor removes that name.
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& path)
        : path_(path),
          name_(system::directoryOf(path) + "/." + fs::path(path).filename().string() + ".XXXXXX"),
          descriptor_(mkostemp(name_.data(), O_CLOEXEC)) {
        check(static_cast<bool>(descriptor_), attempt());
    }
    ~TemporaryFile() {
        if (!name_.empty()) {
            unlink(name_.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void write(std::string_view content) const {
        while (!content.empty()) {
            const ssize_t written = ::write(descriptor_.get(), content.data(), content.size());
            check(written >= 0 || errno == EINTR, attempt());
            content.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
        }
        // The umask must not count.
        check(fchmod(descriptor_.get(), kFileMode) == 0, attempt());
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

  private:
    std::string attempt() const {
        return "make " + path_;
    }

    std::string path_;
    std::string name_;
    system::Descriptor descriptor_;
};

}  // namespace

void makeNewFile(const std::string& path, std::string_view content) {
    const HeldBackSignals signals;
    NewDirectories directories(system::directoryOf(path));
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

}  // namespace qv::host
