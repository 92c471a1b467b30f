// SPDX-License-Identifier: Apache-2.0

// Makes the disk of a program slower. Each flush of a file takes longer by the microseconds in the
// variable QV_FLUSH_DELAY. The servers that are compared get the same disk in this way, on every
// machine and at every time:
//
//     LD_PRELOAD=build/lib/libslow_flush.so QV_FLUSH_DELAY=250 build/bench/disk_bench 11 1 10
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

// Takes the place of a function of the C library.
#define QV_INTERPOSED extern "C" __attribute__((visibility("default")))

namespace {

int flushSlowly(long call, int file) {
    static const char* const delay = std::getenv("QV_FLUSH_DELAY");
    std::this_thread::sleep_for(std::chrono::microseconds(delay != nullptr ? std::atol(delay) : 0));
    return static_cast<int>(::syscall(call, file));
}

}  // namespace

QV_INTERPOSED int fdatasync(int file) {
    return flushSlowly(SYS_fdatasync, file);
}

QV_INTERPOSED int fsync(int file) {
    return flushSlowly(SYS_fsync, file);
}
