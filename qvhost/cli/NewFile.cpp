#include "cli/NewFile.h"

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

fs::path directoryOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

// As long as the object lives.
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

void syncDirectory(const fs::path& directory) {
    const std::string attempt = "write the directory " + directory.string();
    const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // One may be allowed to make files in a directory and not to read it.
    if (descriptor == -1 && errno == EACCES) {
        return;
    }
    check(descriptor != -1, attempt);
    // EINVAL is a file system that has nothing to write there.
    const bool isSynced = fsync(descriptor) == 0 || errno == EINVAL;
    const int error = errno;
    close(descriptor);
    errno = error;
    check(isSynced, attempt);
}

// A directory and those above it that were missing. They go again with the object, unless kept.
class Directories {
  public:
    Directories() = default;
    ~Directories() {
        std::for_each(made_.rbegin(), made_.rend(),
                      [](const fs::path& directory) { rmdir(directory.c_str()); });
    }
    Directories(const Directories&) = delete;
    Directories& operator=(const Directories&) = delete;

    void make(const fs::path& directory) {
        struct stat status = {};
        if (stat(directory.c_str(), &status) == 0 || errno != ENOENT) {
            return;
        }
        if (directory.has_parent_path() && directory.parent_path() != directory) {
            make(directory.parent_path());
        }
        made_.reserve(made_.size() + 1);
        const bool isMade = mkdir(directory.c_str(), kDirectoryMode) == 0;
        check(isMade || errno == EEXIST, "make the directory " + directory.string());
        if (isMade) {
            made_.push_back(directory);
            syncDirectory(directoryOf(directory));
        }
    }

    void keep() { made_.clear(); }

  private:
    std::vector<fs::path> made_;
};

// The content under another name, which goes with the object.
class TemporaryFile {
  public:
    explicit TemporaryFile(const fs::path& path)
        : path_(path),
          name_((directoryOf(path) / ('.' + path.filename().string() + ".XXXXXX")).string()),
          descriptor_(mkostemp(name_.data(), O_CLOEXEC)) {
        check(descriptor_ != -1, attempt());
    }
    ~TemporaryFile() {
        close(descriptor_);
        if (!name_.empty()) {
            unlink(name_.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void write(std::string_view content) const {
        while (!content.empty()) {
            const ssize_t written = ::write(descriptor_, content.data(), content.size());
            check(written >= 0 || errno == EINTR, attempt());
            content.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
        }
        // Whatever the umask has taken away.
        check(fchmod(descriptor_, kFileMode) == 0, attempt());
        check(fsync(descriptor_) == 0, attempt());
    }

    void putInPlace() {
        if (link(name_.c_str(), path_.c_str()) == 0) {
            unlink(name_.c_str());
        } else {
            check(errno != EEXIST, attempt());
            // A file system without hard links, perhaps.
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
        return "make " + path_.string();
    }

    fs::path path_;
    std::string name_;
    int descriptor_;
};

}  // namespace

void makeNewFile(const std::string& path, std::string_view content) {
    const HeldBackSignals signals;
    Directories directories;
    directories.make(directoryOf(path));
    TemporaryFile file(path);
    file.write(content);
    errno = EINTR;
    check(!signals.oneArrived(), "make " + path);
    file.putInPlace();
    try {
        syncDirectory(directoryOf(path));
    } catch (const std::system_error&) {
        unlink(path.c_str());
        throw;
    }
    directories.keep();
}

}  // namespace qv::host
