// Functions run in a process of their own whose system calls are counted, and one of which can be
// made to fail, to do less than it was asked, or to be the last thing that the process comes to.
//
//     const auto body = [] {
//         prepare();
//         beginTrace();
//         act();
//         endTrace();
//         return whatWasSeen();
//     };
//     const TracedRun run = runTraced(body, Fault::fail(3, EIO));
//
// Only the calls of the child's first thread are seen. Linux on x86-64.
#ifndef QV_TESTS_SYSTEM_CALL_TRACER_H
#define QV_TESTS_SYSTEM_CALL_TRACER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/ChildRun.h"

namespace qv::tests {

// What happens at one of the calls between the marks, which count from 0; those to write() once
// more among themselves.
struct Fault {
    enum class Kind { kNone, kFail, kShorten, kKillBefore, kKillAfter };

    Kind kind = Kind::kNone;
    int call = -1;
    // The errno of a failure.
    int error = 0;
    // How many bytes a shortened write() is left with.
    std::size_t length = 0;
    bool isForGood = false;

    // The call is not executed; close() is, since on Linux a close() that fails has closed. Where
    // it asks for memory, all that do after it fail as well, or the C library would get its memory
    // in another way.
    static Fault fail(int call, int error) { return {Kind::kFail, call, error, 0, false}; }
    // So do all later ones of the same kind on the same file, to the second mark.
    static Fault failForGood(int call, int error) { return {Kind::kFail, call, error, 0, true}; }
    static Fault shorten(int write, std::size_t length) {
        return {Kind::kShorten, write, 0, length, false};
    }
    static Fault killBefore(int call) { return {Kind::kKillBefore, call, 0, 0, false}; }
    static Fault killAfter(int call) { return {Kind::kKillAfter, call, 0, 0, false}; }
};

struct SystemCall {
    long number = -1;
    std::array<std::uint64_t, 6> arguments{};
    // The path that the call names, or that of the open file which it is given; else empty.
    std::string file;
};

// "write(/a/b/file)": the name, where it is one of a file system's usual calls, and the file.
std::string describe(const SystemCall& call);

bool asksForMemory(const SystemCall& call);

struct TracedRun : ChildRun {
    // Those between the marks, up to where the process was killed.
    std::vector<SystemCall> calls;
};

// Throws std::system_error where the process cannot be traced.
TracedRun runTraced(const std::function<std::string()>& body, const Fault& fault = {});

// The marks, for the function to call once each.
void beginTrace();
void endTrace();

}  // namespace qv::tests

#endif  // QV_TESTS_SYSTEM_CALL_TRACER_H
