// SPDX-License-Identifier: Apache-2.0

// Measures the resident host with its files on a disk:
//
//     disk_bench ROUNDS SLICE TIME
//
// Compares the changes a second with those of Redis, in as many rounds, in which each server has
// SLICE seconds at a time. Compares the time that a client waits for the host, while others change
// the directory for TIME seconds, with the time that it waits for bare sockets.

#include <mntent.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>

#include "ChangeRates.h"
#include "Latencies.h"
#include "support/Places.h"

namespace {

std::chrono::steady_clock::duration seconds(const char* number) {
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(std::atof(number)));
}

// Prints which file system has the benchmark's directories.
void printDisk() {
    const qv::bench::Place place(qv::bench::Place::Kind::Disk);
    const std::unique_ptr<FILE, int (*)(FILE*)> mounts(setmntent("/proc/self/mounts", "r"),
                                                       endmntent);
    struct stat ours = {};
    struct stat theirs = {};
    while (const mntent* mount = mounts ? getmntent(mounts.get()) : nullptr) {
        if (stat(place.path().c_str(), &ours) == 0 && stat(mount->mnt_dir, &theirs) == 0 &&
            ours.st_dev == theirs.st_dev) {
            static_cast<void>(std::fprintf(stderr, "disk_bench: the files are on %s, %s\n",
                                           mount->mnt_fsname, mount->mnt_type));
            return;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        static_cast<void>(std::fputs("usage: disk_bench ROUNDS SLICE TIME\n", stderr));
        return EXIT_FAILURE;
    }
    try {
        printDisk();
        qv::bench::printChangeRates(std::atoi(argv[1]), seconds(argv[2]));
        std::printf("\n");
        qv::bench::printLatencies(seconds(argv[3]));
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "disk_bench: %s\n", error.what()));
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
