// SPDX-License-Identifier: Apache-2.0

// Tells what the host does: to clients that ask, and in one line to the service manager.
#ifndef QVHOST_SERVER_STATUS_H
#define QVHOST_SERVER_STATUS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "server/Counts.h"
#include "server/Follower.h"
#include "server/Recorder.h"

namespace qv::host {

// What is known of the host at one moment.
struct Status {
    std::string version;
    std::chrono::system_clock::time_point startTime;
    std::string filePath;
    Recorder::StatePointer state;
    Recorder::Statistics commits;
    Follower::Statistics file;
    std::size_t clients = 0;
    std::size_t clientLimit = 0;
    std::size_t subscribers = 0;
    std::size_t memory = 0;  // bytes of all requests and answers
    std::size_t memoryLimit = 0;
};

// Returns the answer to QV_HOST_COMMAND_STATUS, a serialised HostStatus of QvHost.proto.
std::string serialised(const Status& status, const Counts& counts);

// Returns a line for a person: how many clients are connected, and what does not work.
std::string summary(const Status& status);

}  // namespace qv::host

#endif  // QVHOST_SERVER_STATUS_H
