// SPDX-License-Identifier: Apache-2.0

#include "qvhost/durability/HostTracer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <vector>

#include "qvhost/durability/HostFiles.h"
#include "support/ConfigurationDocuments.h"
#include "support/SystemCallTracer.h"

namespace qv::host {

namespace {

using tests::SystemCall;

// What the tracer tells the test. The test sends strikes.
struct Message {
    enum class Kind { Obeyed, Held, Ended };

    Kind kind = Kind::Obeyed;
    int calls = 0;
    char struck[512] = "";
};

void check(bool succeeded, const char* attempt) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), attempt);
    }
}

// The calls that stop the host. All others run at full speed.
constexpr unsigned kTraced[] = {
    SYS_access,    SYS_chmod,  SYS_faccessat, SYS_fallocate, SYS_fchmod,    SYS_fchown,
    SYS_fchmodat,  SYS_fcntl,  SYS_fdatasync, SYS_flock,     SYS_fstat,     SYS_fsync,
    SYS_ftruncate, SYS_link,   SYS_linkat,    SYS_lseek,     SYS_lstat,     SYS_mkdir,
    SYS_mkdirat,   SYS_open,   SYS_openat,    SYS_pread64,   SYS_pwrite64,  SYS_read,
    SYS_readlink,  SYS_readv,  SYS_rename,    SYS_renameat,  SYS_renameat2, SYS_stat,
    SYS_statx,     SYS_unlink, SYS_unlinkat,  SYS_write,     SYS_writev,    SYS_rmdir,
    SYS_newfstatat};

bool writes(const SystemCall& call) {
    return call.number == SYS_write || call.number == SYS_pwrite64;
}

bool opensForChange(const SystemCall& call) {
    const std::uint64_t flags = call.arguments[call.number == SYS_open ? 1 : 2];
    return (call.number == SYS_open || call.number == SYS_openat) &&
           (flags & std::uint64_t{O_CREAT | O_TRUNC}) != 0;
}

bool flushes(const SystemCall& call) {
    return call.number == SYS_fsync || call.number == SYS_fdatasync;
}

bool changes(const SystemCall& call) {
    switch (call.number) {
        case SYS_chmod:
        case SYS_fallocate:
        case SYS_fchmod:
        case SYS_fchmodat:
        case SYS_fchown:
        case SYS_ftruncate:
        case SYS_link:
        case SYS_linkat:
        case SYS_mkdir:
        case SYS_mkdirat:
        case SYS_rename:
        case SYS_renameat:
        case SYS_renameat2:
        case SYS_rmdir:
        case SYS_unlink:
        case SYS_unlinkat:
        case SYS_writev:
            return true;
        default:
            return writes(call) || flushes(call) || opensForChange(call);
    }
}

// Makes the traced calls of this process stop it. The process must be traced already.
void installFilter() {
    constexpr std::size_t kCount = std::size(kTraced);
    std::vector<sock_filter> program;
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    for (std::size_t i = 0; i < kCount; ++i) {
        // Jumps to the last instruction.
        program.push_back(
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kTraced[i], static_cast<__u8>(kCount - i), 0));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE));
    sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
    check(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
              ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0,
          "cannot have system calls traced");
}

// Follows the host from stop to stop, in a process of its own.
class Tracer {
  public:
    Tracer(pid_t host, std::string directory, const Strike& strike, std::string images, int control)
        : host_(host),
          directory_(std::move(directory)),
          strike_(strike),
          images_(std::move(images)),
          control_(control) {}

    void attach() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGCHLD);
        check(::sigprocmask(SIG_BLOCK, &signals, nullptr) == 0, "sigprocmask");
        events_ = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
        check(events_ != -1, "signalfd");
        constexpr auto kOptions =
            PTRACE_O_TRACESECCOMP | PTRACE_O_TRACECLONE | PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
        check(::ptrace(PTRACE_SEIZE, host_, nullptr, kOptions) == 0, "cannot trace the host");
        tell(Message::Kind::Obeyed);
    }

    void follow() {
        while (handleStops()) {
            pollfd wanted[] = {{events_, POLLIN, 0}, {control_, POLLIN, 0}};
            check(::poll(wanted, 2, -1) != -1 || errno == EINTR, "poll");
            signalfd_siginfo ignored = {};
            while (::read(events_, &ignored, sizeof ignored) > 0) {
            }
            if ((wanted[1].revents & POLLIN) != 0) {
                obey();
            }
        }
        tell(Message::Kind::Ended);
    }

    // Tells the test what went wrong.
    void fail(const std::string& problem) {
        struck_ = "the tracer failed: " + problem;
        tell(Message::Kind::Ended);
    }

  private:
    // Returns false when the host has ended.
    bool handleStops() {
        while (true) {
            int status = 0;
            const pid_t thread = ::waitpid(-1, &status, __WALL | WNOHANG);
            if (thread == 0) {
                return true;
            }
            if (thread == -1 || (thread == host_ && !WIFSTOPPED(status))) {
                return false;
            }
            if (WIFSTOPPED(status)) {
                handleStop(thread, status);
            }
        }
    }

    void handleStop(pid_t thread, int status) {
        const int event = status >> 16;
        const int signal = WSTOPSIG(status);
        if (event == PTRACE_EVENT_SECCOMP) {
            atCall(thread);
        } else if (signal == (SIGTRAP | 0x80)) {
            // The end of a write that was shortened.
            ::kill(host_, SIGKILL);
        } else {
            resume(thread, event != 0 ? 0 : signal);
        }
    }

    static void resume(pid_t thread, int signal = 0) {
        ::ptrace(PTRACE_CONT, thread, nullptr, signal);
    }

    void atCall(pid_t thread) {
        user_regs_struct registers = {};
        if (::ptrace(PTRACE_GETREGS, thread, nullptr, &registers) != 0) {
            return;  // the host is being killed
        }
        SystemCall call{static_cast<long>(registers.orig_rax),
                        {registers.rdi, registers.rsi, registers.rdx, registers.r10, registers.r8,
                         registers.r9},
                        {}};
        call.file = tests::fileOf(thread, call);
        if (call.file.compare(0, directory_.size(), directory_) != 0) {
            resume(thread);
            return;
        }
        ++calls_;
        changes_ += changes(call) ? 1 : 0;
        writes_ += writes(call) ? 1 : 0;
        if (isStruck(call)) {
            strike(thread, registers, call);
            return;
        }
        if (flushes(call)) {
            keepImage(thread, call);
        }
        resume(thread);
    }

    // Tells whether the strike is at this call, whose number is `number`.
    bool isAt(const SystemCall& call, int number) const {
        if (strike_.call != -1) {
            return number == strike_.call;
        }
        const bool isRecord = call.file.find(".record") != std::string::npos;
        return strike_.file == HostFile::Record
                   ? isRecord
                   : call.file == directory_ + "/" + tests::kConfigurationFile;
    }

    bool isStruck(const SystemCall& call) const {
        switch (strike_.kind) {
            case Strike::Kind::None:
                return false;
            case Strike::Kind::Fail:
                return isAt(call, calls_ - 1);
            case Strike::Kind::KillWithin:
                return writes(call) && isAt(call, writes_ - 1);
            default:
                return changes(call) && isAt(call, changes_ - 1);
        }
    }

    void strike(pid_t thread, user_regs_struct& registers, const SystemCall& call) {
        struck_ = tests::describe(call);
        switch (strike_.kind) {
            case Strike::Kind::None:
                break;
            case Strike::Kind::Fail:
            case Strike::Kind::FailChanges:
                // The system executes nothing, because no call has this number.
                registers.orig_rax = ~std::uint64_t{0};
                registers.rax = static_cast<std::uint64_t>(-std::int64_t{strike_.error});
                ::ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
                resume(thread);
                break;
            case Strike::Kind::KillBefore:
                ::kill(host_, SIGKILL);
                break;
            case Strike::Kind::KillWithin:
                registers.rdx /= 2;
                ::ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
                ::ptrace(PTRACE_SYSCALL, thread, nullptr, 0);
                break;
            case Strike::Kind::Hold:
                held_.push_back(thread);
                tell(Message::Kind::Held);
        }
    }

    void keepImage(pid_t thread, const SystemCall& call) const {
        struct stat status = {};
        const std::string open =
            "/proc/" + std::to_string(thread) + "/fd/" + std::to_string(call.arguments[0]);
        if (!images_.empty() && ::stat(open.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
            std::filesystem::copy_file(open, images_ + "/" + std::to_string(status.st_ino),
                                       std::filesystem::copy_options::overwrite_existing);
        }
    }

    void obey() {
        check(::recv(control_, &strike_, sizeof strike_, 0) == ssize_t{sizeof strike_},
              "no strike arrives");
        for (const pid_t thread : held_) {
            resume(thread);
        }
        held_.clear();
        tell(Message::Kind::Obeyed);
    }

    void tell(Message::Kind kind) const {
        Message message;
        message.kind = kind;
        message.calls = calls_;
        struck_.copy(message.struck, sizeof message.struck - 1);
        static_cast<void>(::send(control_, &message, sizeof message, MSG_NOSIGNAL));
    }

    pid_t host_;
    std::string directory_;
    Strike strike_;
    std::string images_;
    int control_;
    int events_ = -1;
    int calls_ = 0;
    int changes_ = 0;
    int writes_ = 0;
    std::vector<pid_t> held_;
    std::string struck_;
};

// Runs in the process that becomes the host. Starts the tracer and waits until it traces.
void startTracer(const std::string& directory, const Strike& strike, const std::string& images,
                 int control, int testsEnd) {
    const pid_t host = ::getpid();
    int ready[2];
    check(::pipe2(ready, O_CLOEXEC) == 0, "cannot make a pipe");
    const pid_t tracer = ::fork();
    check(tracer != -1, "cannot start the tracer");
    if (tracer == 0) {
        ::close(testsEnd);
        char go = 0;
        Tracer following(host, directory, strike, images, control);
        try {
            check(::read(ready[0], &go, 1) == 1, "the host does not become ready");
            following.attach();
            following.follow();
        } catch (const std::exception& error) {
            ::kill(host, SIGKILL);
            following.fail(error.what());
        }
        ::_exit(0);
    }
    // Has no effect where any process may trace another one of its user.
    ::prctl(PR_SET_PTRACER, tracer, 0, 0, 0);
    check(::write(ready[1], "g", 1) == 1, "cannot tell the tracer");
    // The tracer's first message says that it traces. The host must not come first.
    Message attached;
    check(::recv(testsEnd, &attached, sizeof attached, 0) == ssize_t{sizeof attached},
          "the tracer has ended");
    installFilter();
}

}  // namespace

HostTracer::HostTracer(HostProcess& host, const Strike& strike, const std::string& images)
    : host_(host) {
    int ends[2];
    check(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0,
          "cannot make a socket");
    control_ = ends[0];
    tracersEnd_ = ends[1];
    // The bound makes a test fail that waits for nothing.
    const timeval never = {120, 0};
    ::setsockopt(control_, SOL_SOCKET, SO_RCVTIMEO, &never, sizeof never);
    const std::string directory = directoryOf(host);
    host.setPreparation([this, strike, images, directory] {
        startTracer(directory, strike, images, tracersEnd_, control_);
    });
}

HostTracer::~HostTracer() {
    host_.setPreparation({});
    ::close(control_);
    ::close(tracersEnd_);
}

void HostTracer::receive() {
    Message message;
    check(::recv(control_, &message, sizeof message, 0) == ssize_t{sizeof message},
          "the tracer does not answer");
    switch (message.kind) {
        case Message::Kind::Obeyed:
            hasObeyed_ = true;
            break;
        case Message::Kind::Held:
            isHeld_ = true;
            break;
        case Message::Kind::Ended:
            summary_ = {message.calls, message.struck};
    }
}

void HostTracer::set(const Strike& strike) {
    hasObeyed_ = false;
    // After the end of the host there is no tracer any more.
    static_cast<void>(::send(control_, &strike, sizeof strike, MSG_NOSIGNAL));
    while (!hasObeyed_ && !summary_) {
        receive();
    }
    isHeld_ = false;
}

void HostTracer::awaitHeld() {
    while (!isHeld_ && !summary_) {
        receive();
    }
    EXPECT_TRUE(isHeld_) << "the host has ended";
}

HostTracer::Summary HostTracer::ended() {
    while (!summary_) {
        receive();
    }
    return *summary_;
}

}  // namespace qv::host
