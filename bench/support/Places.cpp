// SPDX-License-Identifier: Apache-2.0

#include "Places.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#ifdef __APPLE__
#include <sys/mount.h>
#else
#include <linux/magic.h>
#include <sys/vfs.h>
#endif

namespace qv::bench {

namespace {

bool isInMemory(const std::string& directory) {
    struct statfs status = {};
    if (statfs(directory.c_str(), &status) != 0) {
        return false;
    }
#ifdef __APPLE__
    return std::strcmp(status.f_fstypename, "tmpfs") == 0;
#else
    return status.f_type == TMPFS_MAGIC || status.f_type == RAMFS_MAGIC;
#endif
}

std::vector<std::string> candidates(Place::Kind kind) {
    const char* const variable = std::getenv("TMPDIR");
    const std::string temporary = variable != nullptr && *variable != '\0' ? variable : "/tmp";
    if (kind == Place::Kind::Memory) {
        return {"/dev/shm", temporary, "/tmp"};
    }
    return {temporary, "/tmp", "/var/tmp", std::filesystem::current_path().string()};
}

}  // namespace

Place::Place(Kind kind) {
    for (const std::string& directory : candidates(kind)) {
        std::string pattern = directory + "/qv-bench-XXXXXX";
        if (isInMemory(directory) == (kind == Kind::Memory) && mkdtemp(pattern.data()) != nullptr) {
            path_ = pattern;
            return;
        }
    }
    static_cast<void>(std::fprintf(stderr, "there is no writable directory %s\n",
                                   kind == Kind::Memory ? "in memory" : "on a disk"));
    std::exit(EXIT_FAILURE);
}

Place::~Place() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace qv::bench
