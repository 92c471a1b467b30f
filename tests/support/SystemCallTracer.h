// SPDX-License-Identifier: Apache-2.0

// Runs functions in a child process and counts its system calls. One of the calls can fail, write
// less than the child asked for, or end the child.
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
// The tracer sees only the calls of the child's first thread. It needs Linux on x86-64.
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

// What happens at one of the calls between the two marks. The calls are counted from 0. For
// shorten(), only the calls of write() and pwrite() are counted.
struct Fault {
    enum class Kind { kNone, kFail, kShorten, kKillBefore, kKillAfter };

    Kind kind = Kind::kNone;
    int call = -1;
    // The errno of a failure.
    int error = 0;
    // How many bytes a shortened write() or pwrite() writes.
    std::size_t length = 0;
    bool isForGood = false;

    // Makes a call fail. The system does not execute the call, except for close(): on Linux, a
    // close() that fails has closed the file. If the call asks for memory, all later calls for
    // memory fail also, because the C library would otherwise get the memory with another call.
    static Fault fail(int call, int error) { return {Kind::kFail, call, error, 0, false}; }
    // Makes a call fail, and all later calls of the same kind on the same file up to the second
    // mark.
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
    // The path that the call names, or the path of its open file. Empty for other calls.
    std::string file;
};

// Returns the path of the file that a call uses. The child must be stopped before or after the
// call. Empty if the call uses no file.
std::string fileOf(pid_t child, const SystemCall& call);

// Returns the name of the call and its file: "write(/a/b/file)". Returns the number of an unusual
// call in place of its name.
std::string describe(const SystemCall& call);

bool asksForMemory(const SystemCall& call);

struct TracedRun : ChildRun {
    // The calls between the marks, up to a kill.
    std::vector<SystemCall> calls;
};

// Runs the function in a traced child. Throws std::system_error if the child cannot be traced.
TracedRun runTraced(const std::function<std::string()>& body, const Fault& fault = {});

// Set the marks. The function calls each of them once.
void beginTrace();
void endTrace();

}  // namespace qv::tests

#endif  // QV_TESTS_SYSTEM_CALL_TRACER_H
