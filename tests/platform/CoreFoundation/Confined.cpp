// SPDX-License-Identifier: Apache-2.0

#include "platform/CoreFoundation/Confined.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

namespace qv::tests {
namespace {

#ifdef QV_SANITIZED
constexpr std::size_t kStackSize = 8UL * 512 * 1024;
#else
constexpr std::size_t kStackSize = 512UL * 1024;
#endif
constexpr rlim_t kProcessorSeconds = 120;

void lower(__rlimit_resource resource, rlim_t value) {
    const rlimit limit = {value, value};
    ASSERT_EQ(::setrlimit(resource, &limit), 0) << std::strerror(errno);
}

void limitMemory() {
#ifndef QV_SANITIZED
    constexpr rlim_t kMemory = 256UL * 1024 * 1024;
    // The limit counts the sixth field. All fields count pages.
    std::ifstream sizes("/proc/self/statm");
    rlim_t pages = 0;
    for (int field = 0; field < 6; ++field) {
        sizes >> pages;
    }
    ASSERT_TRUE(sizes);
    lower(RLIMIT_DATA, pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + kMemory);
#endif
}

void* run(void* action) {
    (*static_cast<const std::function<void()>*>(action))();
    return nullptr;
}

}  // namespace

void onSmallStack(const std::function<void()>& action) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, kStackSize), 0);
    pthread_t thread = {};
    auto* const argument = const_cast<std::function<void()>*>(&action);
    ASSERT_EQ(pthread_create(&thread, &attributes, run, argument), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

void confined(const std::function<void()>& action) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0) << std::strerror(errno);
    if (child == 0) {
        limitMemory();
        lower(RLIMIT_CPU, kProcessorSeconds);
        lower(RLIMIT_CORE, 0);
        onSmallStack(action);
        std::fflush(nullptr);
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child) << std::strerror(errno);
    EXPECT_FALSE(WIFSIGNALED(status)) << "the child was ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : 0, 0)
        << "the action failed in the child, see above";
}

}  // namespace qv::tests
