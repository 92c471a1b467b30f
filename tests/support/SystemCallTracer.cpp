// SPDX-License-Identifier: Apache-2.0

#include "support/SystemCallTracer.h"

#include <fcntl.h>
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
#include <cstring>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

namespace qv::tests {
namespace {

// The marks are calls of prctl() with these unknown requests.
constexpr unsigned long kBegin = 0x71760001;
constexpr unsigned long kEnd = 0x71760002;

constexpr int kSystemCallStop = SIGTRAP | 0x80;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Returns the number of the argument that is a path, or -1 if the call takes no path.
int pathArgument(long number) {
    switch (number) {
        case SYS_access:
        case SYS_chmod:
        case SYS_link:
        case SYS_lstat:
        case SYS_mkdir:
        case SYS_open:
        case SYS_readlink:
        case SYS_rename:
        case SYS_rmdir:
        case SYS_stat:
        case SYS_unlink:
            return 0;
        case SYS_faccessat:
        case SYS_fchmodat:
        case SYS_linkat:
        case SYS_mkdirat:
        case SYS_newfstatat:
        case SYS_openat:
        case SYS_renameat:
        case SYS_renameat2:
        case SYS_statx:
        case SYS_unlinkat:
            return 1;
        default:
            return -1;
    }
}

bool takesOpenFile(long number) {
    switch (number) {
        case SYS_close:
        case SYS_fallocate:
        case SYS_fchmod:
        case SYS_fchown:
        case SYS_fcntl:
        case SYS_fdatasync:
        case SYS_flock:
        case SYS_fstat:
        case SYS_fsync:
        case SYS_ftruncate:
        case SYS_lseek:
        case SYS_newfstatat:
        case SYS_pread64:
        case SYS_pwrite64:
        case SYS_read:
        case SYS_readv:
        case SYS_statx:
        case SYS_write:
        case SYS_writev:
            return true;
        default:
            return false;
    }
}

bool writes(const SystemCall& call) {
    return call.number == SYS_write || call.number == SYS_pwrite64;
}

// Returns a text in the memory of a stopped child. Returns an empty text if it cannot be read.
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

// Returns the path of an open file, or an empty text.
std::string openFileOf(pid_t child, std::uint64_t descriptor) {
    std::error_code ignored;
    return std::filesystem::read_symlink(
               "/proc/" + std::to_string(child) + "/fd/" + std::to_string(descriptor), ignored)
        .string();
}

// Follows one child from stop to stop.
class Tracer {
  public:
    Tracer(pid_t child, const Fault& fault, std::vector<SystemCall>& calls)
        : child_(child), fault_(fault), calls_(calls) {}

    // Follows the child to its end and returns its status.
    int follow() {
        bool isReady = false;
        int signal = 0;
        int status = 0;
        while (true) {
            const auto request = isInWindow_ ? PTRACE_SYSCALL : PTRACE_CONT;
            if (isReady && ptrace(request, child_, nullptr, signal) != 0 && errno != ESRCH) {
                fail("ptrace");
            }
            if (waitpid(child_, &status, 0) != child_) {
                fail("waitpid");
            }
            if (!WIFSTOPPED(status)) {
                return status;
            }
            signal = 0;
            const int stop = WSTOPSIG(status);
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
                // The child has stopped itself in beginTrace().
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
        if (!isCounting_ || calls_.empty()) {
            return false;
        }
        if (fault_.kind == Fault::Kind::kShorten) {
            return writes(calls_.back()) && writes_ - 1 == fault_.call;
        }
        return static_cast<int>(calls_.size()) - 1 == fault_.call;
    }

    // Returns whether a lasting fault has begun that covers the kind and the file of the call.
    bool isBroken() const {
        if (!fault_.isForGood || static_cast<int>(calls_.size()) <= fault_.call) {
            return false;
        }
        const SystemCall& first = calls_[static_cast<std::size_t>(fault_.call)];
        return calls_.back().number == first.number && calls_.back().file == first.file;
    }

    void enter(user_regs_struct& registers) {
        const auto number = static_cast<long>(registers.orig_rax);
        if (number == SYS_prctl && (registers.rdi == kBegin || registers.rdi == kEnd)) {
            isCounting_ = registers.rdi == kBegin;
            isInWindow_ = isCounting_;
            // After the second mark the child runs without stops, also at the end of this call.
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
        calls_.push_back(std::move(call));
        writes_ += writes(calls_.back()) ? 1 : 0;
        if (isAtFault() || (isOutOfMemory_ && asksForMemory(calls_.back())) || isBroken()) {
            strike(registers);
        }
    }

    void strike(user_regs_struct& registers) {
        const SystemCall& call = calls_.back();
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
                // brk() fails if it moves nothing, and returns the end of the heap.
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
        const SystemCall& call = calls_.back();
        if (fault_.kind == Fault::Kind::kKillAfter) {
            kill(child_, SIGKILL);
            return;
        }
        // The caller relies on a call to leave the registers of its arguments unchanged.
        registers.rdi = call.arguments[0];
        registers.rdx = call.arguments[2];
        if (fault_.kind == Fault::Kind::kFail && call.number != SYS_brk) {
            registers.rax = static_cast<std::uint64_t>(-static_cast<std::int64_t>(fault_.error));
        }
        put(registers);
    }

    // Makes the system execute nothing, because no call has this number.
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
    std::vector<SystemCall>& calls_;
    // Whether the child stops at system calls. It does from a few calls before the first mark.
    bool isInWindow_ = false;
    bool isCounting_ = false;
    int writes_ = 0;
    bool isOutOfMemory_ = false;
    // Whether the tracer has changed the call that the child is in.
    bool isStruck_ = false;
    // Whether the last stop was at the entry of a call.
    bool isEntry_ = false;
};

}  // namespace

std::string fileOf(pid_t child, const SystemCall& call) {
    const int path = pathArgument(call.number);
    std::string file =
        path < 0 ? "" : textAt(child, call.arguments[static_cast<std::size_t>(path)]);
    if (file.empty() && takesOpenFile(call.number)) {
        return openFileOf(child, call.arguments[0]);
    }
    // A call whose second argument is a path has a directory as its first one.
    if (path == 1 && file[0] != '/' && static_cast<int>(call.arguments[0]) != AT_FDCWD) {
        return openFileOf(child, call.arguments[0]) + "/" + file;
    }
    return file;
}

std::string describe(const SystemCall& call) {
    static const std::map<long, const char*> names{
        {SYS_access, "access"},       {SYS_faccessat, "access"},    {SYS_brk, "brk"},
        {SYS_chmod, "chmod"},         {SYS_fchmodat, "chmod"},      {SYS_close, "close"},
        {SYS_fallocate, "fallocate"}, {SYS_fchmod, "fchmod"},       {SYS_fchown, "fchown"},
        {SYS_fcntl, "fcntl"},         {SYS_fdatasync, "fdatasync"}, {SYS_flock, "flock"},
        {SYS_fstat, "fstat"},         {SYS_fsync, "fsync"},         {SYS_ftruncate, "ftruncate"},
        {SYS_link, "link"},           {SYS_linkat, "link"},         {SYS_lseek, "lseek"},
        {SYS_lstat, "lstat"},         {SYS_mkdir, "mkdir"},         {SYS_mkdirat, "mkdir"},
        {SYS_mmap, "mmap"},           {SYS_mremap, "mremap"},       {SYS_munmap, "munmap"},
        {SYS_open, "open"},           {SYS_openat, "open"},         {SYS_pread64, "pread"},
        {SYS_pwrite64, "pwrite"},     {SYS_read, "read"},           {SYS_readlink, "readlink"},
        {SYS_readv, "readv"},         {SYS_rename, "rename"},       {SYS_renameat, "rename"},
        {SYS_renameat2, "rename"},    {SYS_rmdir, "rmdir"},         {SYS_stat, "stat"},
        {SYS_newfstatat, "stat"},     {SYS_statx, "stat"},          {SYS_unlink, "unlink"},
        {SYS_unlinkat, "unlink"},     {SYS_write, "write"},         {SYS_writev, "writev"},
    };
    const auto name = names.find(call.number);
    return (name != names.end() ? name->second : "call " + std::to_string(call.number)) + "(" +
           call.file + ")";
}

bool asksForMemory(const SystemCall& call) {
    return call.number == SYS_brk || call.number == SYS_mmap || call.number == SYS_mremap;
}

TracedRun runTraced(const std::function<std::string()>& body, const Fault& fault) {
    TracedRun run;
    const auto traced = [&body] {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0 || raise(SIGSTOP) != 0) {
            fail("ptrace");
        }
        return body();
    };
    const auto follow = [&](pid_t child) { return Tracer(child, fault, run.calls).follow(); };
    static_cast<ChildRun&>(run) = runInChild(traced, follow);
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
