// SPDX-License-Identifier: Apache-2.0

// Starts a server with its sockets open, as a service manager does. A client may connect at once
// and waits until the server is ready. The destructor kills the server, and so does the end of the
// benchmark.
#ifndef QV_BENCH_SERVER_PROCESS_H
#define QV_BENCH_SERVER_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include <QvSystem/Descriptor.h>

namespace qv::bench {

using system::Descriptor;

// Returns a socket that listens at the path. This and the functions below throw std::system_error.
std::vector<Descriptor> listenOn(const std::string& path);

// Adds sockets for TCP and UDP at free ports of the loopback, also for IPv6 if the system has it.
void addLoopbackSockets(std::vector<Descriptor>& sockets);

class ServerProcess {
  public:
    // Starts the program. The sockets become its descriptors 3, 4, and so on.
    ServerProcess(const std::vector<std::string>& command, const std::vector<Descriptor>& sockets);
    ~ServerProcess();

    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    pid_t id() const { return process_; }

    // Says whether the server has ended of its own accord.
    bool hasEnded() const;

    // Returns the processor time of all threads of the server up to now.
    std::chrono::nanoseconds processorTime() const;

  private:
    pid_t process_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_SERVER_PROCESS_H
