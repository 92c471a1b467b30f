// SPDX-License-Identifier: Apache-2.0

// Lets a test fill the disk under a host's configuration directory, and make room again.
//
//     withSmallDisk([](HostProcess& host, SmallDisk& disk) {
//         ...
//         disk.fill();
//     });
//
// The disk is a small file system that only the test sees. Root may mount one, and other users may
// where the system has user namespaces. Elsewhere a limit on the length of the host's files stands
// in for the disk: no file can grow, and no file can be written behind its first byte.
#ifndef QVHOST_SMALL_DISK_H
#define QVHOST_SMALL_DISK_H

#include <functional>

#include "qvhost/HostProcess.h"

namespace qv::host {

class SmallDisk {
  public:
    SmallDisk() = default;
    virtual ~SmallDisk() = default;
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    // Leaves no room, for the running host and those that start later.
    virtual void fill() = 0;

    virtual void makeRoom() = 0;
};

using DiskTest = std::function<void(HostProcess& host, SmallDisk& disk)>;

// Runs the test with a host that does not run yet. The test may run in a process of its own.
void withSmallDisk(const DiskTest& test);

// Does the same with the limit on the length of files.
void withLimitedFiles(const DiskTest& test);

}  // namespace qv::host

#endif  // QVHOST_SMALL_DISK_H
