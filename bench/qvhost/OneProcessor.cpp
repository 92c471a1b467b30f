// SPDX-License-Identifier: Apache-2.0

#include "OneProcessor.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace qv::bench {

namespace {

// The server starts and ends no thread while it serves.
std::vector<pid_t> threadsOf(pid_t process) {
    std::vector<pid_t> threads;
    for (const auto& thread :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        threads.push_back(std::atoi(thread.path().filename().c_str()));
    }
    return threads;
}

bool put(const std::vector<pid_t>& threads, const cpu_set_t& processors) {
    return std::all_of(threads.begin(), threads.end(), [&](pid_t thread) {
        return sched_setaffinity(thread, sizeof processors, &processors) == 0;
    });
}

}  // namespace

OneProcessor::OneProcessor(pid_t server) : threads_(threadsOf(server)) {
    threads_.push_back(getpid());
    if (sched_getaffinity(0, sizeof all_, &all_) != 0) {
        throw std::system_error(errno, std::generic_category(), "sched_getaffinity");
    }
    std::size_t last = CPU_SETSIZE - 1;
    while (!CPU_ISSET(last, &all_)) {
        --last;
    }
    cpu_set_t one = {};
    CPU_SET(last, &one);
    if (!put(threads_, one)) {
        throw std::system_error(errno, std::generic_category(), "sched_setaffinity");
    }
}

OneProcessor::~OneProcessor() {
    static_cast<void>(put(threads_, all_));
}

}  // namespace qv::bench
