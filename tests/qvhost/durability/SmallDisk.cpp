// SPDX-License-Identifier: Apache-2.0

#include "qvhost/durability/SmallDisk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>
#include <system_error>

#include "qvhost/durability/HostFiles.h"
#include "support/Files.h"

namespace qv::host {

namespace {

void check(bool succeeded, const std::string& attempt) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), attempt);
    }
}

// A file system in memory, mounted on the host's configuration directory.
class MountedDisk : public SmallDisk {
  public:
    explicit MountedDisk(const HostProcess& host) : directory_(directoryOf(host)) {
        const std::string configuration = configurationOf(host);
        const std::optional<std::string> bytes = tests::contentOf(configuration);
        check(::mount("none", directory_.c_str(), "tmpfs", 0, "size=16m,mode=0700") == 0,
              "cannot mount a file system on " + directory_);
        tests::writeFile(configuration, bytes.value());
    }
    ~MountedDisk() override { ::umount2(directory_.c_str(), MNT_DETACH); }
    MountedDisk(const MountedDisk&) = delete;
    MountedDisk& operator=(const MountedDisk&) = delete;

    void fill() override {
        const int file = ::open((directory_ + "/filler").c_str(),
                                O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        check(file != -1, "cannot make a file that fills the disk");
        const std::string block(4096, 'x');
        while (::write(file, block.data(), block.size()) > 0) {
        }
        const int error = errno;
        ::close(file);
        EXPECT_EQ(error, ENOSPC);
    }

    void makeRoom() override {
        check(::unlink((directory_ + "/filler").c_str()) == 0, "cannot make room on the disk");
    }

  private:
    std::string directory_;
};

class LimitedFiles : public SmallDisk {
  public:
    explicit LimitedFiles(HostProcess& host) : host_(host) {
        host.setPreparation([this] {
            // A process that does not ignore the signal would end.
            static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
            limit(::getpid());
        });
    }

    void fill() override {
        isFull_ = true;
        limit(host_.process());
    }

    void makeRoom() override {
        isFull_ = false;
        limit(host_.process());
    }

  private:
    void limit(pid_t process) const {
        if (process == -1) {
            return;  // the host does not run
        }
        rlimit length = {};
        check(::prlimit(process, RLIMIT_FSIZE, nullptr, &length) == 0, "cannot read a limit");
        length.rlim_cur = isFull_ ? 1 : length.rlim_max;
        check(::prlimit(process, RLIMIT_FSIZE, &length, nullptr) == 0, "cannot set a limit");
    }

    HostProcess& host_;
    bool isFull_ = false;
};

void write(const char* path, const std::string& text) {
    const int file = ::open(path, O_WRONLY | O_CLOEXEC);
    check(file != -1, path);
    const ssize_t count = ::write(file, text.data(), text.size());
    ::close(file);
    check(count == static_cast<ssize_t>(text.size()), path);
}

// Gives the process mounts of its own. Throws std::system_error if the system does not allow it.
void leaveMounts() {
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    if (::unshare(CLONE_NEWNS) != 0) {
        check(::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0, "cannot make a name space");
        write("/proc/self/setgroups", "deny");
        const std::string inner = std::to_string(user);
        write("/proc/self/uid_map", inner + " " + inner + " 1");
        const std::string innerGroup = std::to_string(group);
        write("/proc/self/gid_map", innerGroup + " " + innerGroup + " 1");
    }
    check(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0,
          "cannot keep the mounts apart");
}

// Runs the action in a child process. Returns its exit status.
int inChild(const std::function<bool()>& action) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    check(child != -1, "cannot start a process");
    if (child == 0) {
        bool succeeded = false;
        try {
            succeeded = action();
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
        std::fflush(nullptr);
        ::_exit(succeeded ? 0 : 1);
    }
    int status = 0;
    check(::waitpid(child, &status, 0) == child, "cannot wait for a process");
    return status;
}

bool canMount() {
    return inChild([] {
               try {
                   leaveMounts();
               } catch (const std::system_error& error) {
                   std::printf("%s\n", error.what());
                   return false;
               }
               return ::mount("none", "/tmp", "tmpfs", 0, "size=1m") == 0;
           }) == 0;
}

}  // namespace

void withSmallDisk(const DiskTest& test) {
    if (!canMount()) {
        std::printf("no file system can be mounted, so the length of files is limited\n");
        withLimitedFiles(test);
        return;
    }
    EXPECT_EQ(inChild([&test] {
                  leaveMounts();
                  HostProcess host;
                  MountedDisk disk(host);
                  test(host, disk);
                  return !testing::Test::HasFailure();
              }),
              0)
        << "an expectation of the child failed";
}

void withLimitedFiles(const DiskTest& test) {
    HostProcess host;
    LimitedFiles disk(host);
    test(host, disk);
}

}  // namespace qv::host
