#include "support/SystemCallTracer.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

namespace qv::tests {
namespace {

// Requests that prctl() does not know.
constexpr unsigned long kBegin = 0x71760001;
constexpr unsigned long kEnd = 0x71760002;

constexpr int kSystemCallStop = SIGTRAP | 0x80;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Where a call takes a path: the number of the argument; -1 elsewhere.
int pathArgument(long number) {
    switch (number) {
        case SYS_mkdir:
        case SYS_stat:
            return 0;
        case SYS_newfstatat:
        case SYS_openat:
            return 1;
        default:
            return -1;
    }
}

bool takesOpenFile(long number) {
    switch (number) {
        case SYS_close:
        case SYS_fcntl:
        case SYS_fstat:
        case SYS_fsync:
        case SYS_ftruncate:
        case SYS_lseek:
        case SYS_newfstatat:
        case SYS_read:
        case SYS_readv:
        case SYS_write:
        case SYS_writev:
            return true;
        default:
            return false;
    }
}

// Text in the memory of a child that stands still; empty where it cannot be read.
std::string textAt(pid_t child, std::uint64_t address) {
    std::string text;
    while (true) {
        errno = 0;
        const long word = ptrace(PTRACE_PEEKDATA, child, address + text.size(), nullptr);
        if (errno != 0) {
            return {};
        }
        std::array<char, sizeof word> bytes{};
        std::memcpy(bytes.data(), &word, sizeof word);
        const auto end = std::find(bytes.begin(), bytes.end(), '\0');
        text.append(bytes.begin(), end);
        if (end != bytes.end()) {
            return text;
        }
    }
}

// The file that a call is about.
std::string fileOf(pid_t child, const SystemCall& call) {
    const int path = pathArgument(call.number);
    std::string file =
        path < 0 ? "" : textAt(child, call.arguments[static_cast<std::size_t>(path)]);
    if (file.empty() && takesOpenFile(call.number)) {
        std::error_code ignored;
        file = std::filesystem::read_symlink(
                   "/proc/" + std::to_string(child) + "/fd/" + std::to_string(call.arguments[0]),
                   ignored)
                   .string();
    }
    return file;
}

// One child, stop by stop.
class Tracer {
  public:
    Tracer(pid_t child, const Fault& fault, TracedRun& run)
        : child_(child), fault_(fault), run_(run) {}

    // To the child's end.
    void follow() {
        bool isReady = false;
        int signal = 0;
        while (true) {
            const auto request = isInWindow_ ? PTRACE_SYSCALL : PTRACE_CONT;
            if (isReady && ptrace(request, child_, nullptr, signal) != 0 && errno != ESRCH) {
                fail("ptrace");
            }
            if (waitpid(child_, &run_.status, 0) != child_) {
                fail("waitpid");
            }
            if (!WIFSTOPPED(run_.status)) {
                return;
            }
            signal = 0;
            const int stop = WSTOPSIG(run_.status);
            if (stop == kSystemCallStop) {
                atSystemCall();
            } else if (stop != SIGSTOP) {
                signal = stop;
            } else if (!isReady) {
                isReady = true;
                if (ptrace(PTRACE_SETOPTIONS, child_, nullptr,
                           PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0) {
                    fail("ptrace");
                }
            } else {
                // The child waits at the beginning.
                isInWindow_ = true;
            }
        }
    }

  private:
    void atSystemCall() {
        user_regs_struct registers{};
        if (ptrace(PTRACE_GETREGS, child_, nullptr, &registers) != 0) {
            fail("ptrace");
        }
        isEntry_ = !isEntry_;
        if (isEntry_) {
            enter(registers);
        } else {
            leave(registers);
        }
    }

    bool isAtFault() const {
        if (!isCounting_ || run_.calls.empty()) {
            return false;
        }
        if (fault_.kind == Fault::Kind::kShorten) {
            return run_.calls.back().number == SYS_write && writes_ - 1 == fault_.call;
        }
        return static_cast<int>(run_.calls.size()) - 1 == fault_.call;
    }

    void enter(user_regs_struct& registers) {
        const auto number = static_cast<long>(registers.orig_rax);
        if (number == SYS_prctl && (registers.rdi == kBegin || registers.rdi == kEnd)) {
            isCounting_ = registers.rdi == kBegin;
            isInWindow_ = isCounting_;
            // What follows is run through without stops, not even one at the end of this call.
            isEntry_ = isEntry_ && isInWindow_;
            return;
        }
        if (!isCounting_) {
            return;
        }
        SystemCall call{number,
                        {registers.rdi, registers.rsi, registers.rdx, registers.r10, registers.r8,
                         registers.r9},
                        {}};
        call.file = fileOf(child_, call);
        run_.calls.push_back(std::move(call));
        writes_ += number == SYS_write ? 1 : 0;
        if (isAtFault() || (isOutOfMemory_ && asksForMemory(run_.calls.back()))) {
            strike(registers);
        }
    }

    void strike(user_regs_struct& registers) {
        const SystemCall& call = run_.calls.back();
        isStruck_ = true;
        if (fault_.kind == Fault::Kind::kKillBefore) {
            skip(registers);
            kill(child_, SIGKILL);
        } else if (fault_.kind == Fault::Kind::kShorten) {
            registers.rdx = std::min<std::uint64_t>(registers.rdx, fault_.length);
            put(registers);
        } else if (fault_.kind == Fault::Kind::kFail) {
            isOutOfMemory_ = isOutOfMemory_ || asksForMemory(call);
            if (call.number == SYS_brk) {
                // It fails by moving nothing, and returns where the end is.
                registers.rdi = 0;
                put(registers);
            } else if (call.number != SYS_close) {
                skip(registers);
            }
        }
    }

    void leave(user_regs_struct& registers) {
        if (!isStruck_) {
            return;
        }
        isStruck_ = false;
        const SystemCall& call = run_.calls.back();
        if (fault_.kind == Fault::Kind::kKillAfter) {
            kill(child_, SIGKILL);
            return;
        }
        // A call changes none of its arguments, and the caller counts on that.
        registers.rdi = call.arguments[0];
        registers.rdx = call.arguments[2];
        if (fault_.kind == Fault::Kind::kFail && call.number != SYS_brk) {
            registers.rax = static_cast<std::uint64_t>(-static_cast<std::int64_t>(fault_.error));
        }
        put(registers);
    }

    // There is no call of this number, so none is executed.
    void skip(user_regs_struct& registers) {
        registers.orig_rax = ~std::uint64_t{0};
        put(registers);
    }

    void put(user_regs_struct& registers) {
        if (ptrace(PTRACE_SETREGS, child_, nullptr, &registers) != 0) {
            fail("ptrace");
        }
    }

    pid_t child_;
    const Fault& fault_;
    TracedRun& run_;
    // Whether the child is to stop at system calls; from a few in front of the first that counts.
    bool isInWindow_ = false;
    bool isCounting_ = false;
    int writes_ = 0;
    bool isOutOfMemory_ = false;
    // Whether something was done to the call that the child is in.
    bool isStruck_ = false;
    // Whether the last stop was in front of the call.
    bool isEntry_ = false;
};

// A file without a name, for the child's report.
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
    int result = EXIT_FAILURE;
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 && raise(SIGSTOP) == 0) {
        try {
            if (channel.put(body())) {
                result = EXIT_SUCCESS;
            }
        } catch (const std::exception& exception) {
            channel.put(exception.what());
        }
    }
    _exit(result);
}

}  // namespace

std::string describe(const SystemCall& call) {
    static const std::map<long, const char*> names{
        {SYS_brk, "brk"},       {SYS_close, "close"},   {SYS_fcntl, "fcntl"},
        {SYS_fstat, "fstat"},   {SYS_fsync, "fsync"},   {SYS_ftruncate, "ftruncate"},
        {SYS_lseek, "lseek"},   {SYS_mkdir, "mkdir"},   {SYS_mmap, "mmap"},
        {SYS_mremap, "mremap"}, {SYS_munmap, "munmap"}, {SYS_newfstatat, "stat"},
        {SYS_stat, "stat"},     {SYS_openat, "open"},   {SYS_read, "read"},
        {SYS_readv, "readv"},   {SYS_write, "write"},   {SYS_writev, "writev"},
    };
    const auto name = names.find(call.number);
    return (name != names.end() ? name->second : "call " + std::to_string(call.number)) + "(" +
           call.file + ")";
}

bool asksForMemory(const SystemCall& call) {
    return call.number == SYS_brk || call.number == SYS_mmap || call.number == SYS_mremap;
}

bool TracedRun::hasReturned() const {
    return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

bool TracedRun::wasKilled() const {
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

TracedRun runTraced(const std::function<std::string()>& body, const Fault& fault) {
    const Channel channel;
    const pid_t child = fork();
    if (child < 0) {
        fail("fork");
    }
    if (child == 0) {
        runChild(body, channel);
    }
    TracedRun run;
    try {
        Tracer(child, fault, run).follow();
    } catch (...) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        throw;
    }
    run.report = channel.get();
    return run;
}

void beginTrace() {
    raise(SIGSTOP);
    prctl(static_cast<int>(kBegin));
}

void endTrace() {
    prctl(static_cast<int>(kEnd));
}

}  // namespace qv::tests
