// SPDX-License-Identifier: Apache-2.0

#include "support/ChildRun.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <system_error>

namespace qv::tests {
namespace {

constexpr unsigned kLongestLife = 120;  // seconds

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Passes the child's report through a file without a name.
class Channel {
  public:
    Channel() : file_(memfd_create("report", MFD_CLOEXEC)) {
        if (file_ < 0) {
            fail("memfd_create");
        }
    }
    ~Channel() { close(file_); }
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    Channel(Channel&&) = delete;
    Channel& operator=(Channel&&) = delete;

    bool put(const std::string& text) const {
        return write(file_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

    std::string get() const {
        const off_t size = lseek(file_, 0, SEEK_END);
        std::string text(static_cast<std::size_t>(std::max<off_t>(size, 0)), '\0');
        if (pread(file_, text.data(), text.size(), 0) != size) {
            fail("pread");
        }
        return text;
    }

  private:
    int file_;
};

[[noreturn]] void runChild(const std::function<std::string()>& body, const Channel& channel) {
    // A child that hangs would make its parent hang.
    alarm(kLongestLife);
    int result = EXIT_FAILURE;
    try {
        if (channel.put(body())) {
            result = EXIT_SUCCESS;
        }
    } catch (const std::exception& exception) {
        channel.put(exception.what());
    }
    _exit(result);
}

}  // namespace

bool ChildRun::hasReturned() const {
    return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

bool ChildRun::wasKilled() const {
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

int awaitEnd(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) {
        fail("waitpid");
    }
    return status;
}

ChildRun runInChild(const std::function<std::string()>& body, const Follower& follow) {
    const Channel channel;
    const pid_t child = fork();
    if (child < 0) {
        fail("fork");
    }
    if (child == 0) {
        runChild(body, channel);
    }
    ChildRun run;
    try {
        run.status = follow(child);
    } catch (...) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        throw;
    }
    run.report = channel.get();
    return run;
}

}  // namespace qv::tests
