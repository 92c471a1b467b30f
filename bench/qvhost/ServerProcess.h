// A server that is started with its sockets open, as a service manager starts one: who connects at
// once only waits for it. It is killed with the object, or with the benchmark.
#ifndef QV_BENCH_SERVER_PROCESS_H
#define QV_BENCH_SERVER_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include <QvSystem/Descriptor.h>

namespace qv::bench {

using system::Descriptor;

// The Unix socket there, as the only one. All here throw std::system_error.
std::vector<Descriptor> listenOn(const std::string& path);

// Sockets for TCP and UDP at ports of the loopback that are free, of IPv6 where the system has it.
void addLoopbackSockets(std::vector<Descriptor>& sockets);

class ServerProcess {
  public:
    // The sockets become the program's descriptors 3, 4, and so on.
    ServerProcess(const std::vector<std::string>& command, const std::vector<Descriptor>& sockets);
    ~ServerProcess();

    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    pid_t id() const { return process_; }

    // The processor time of all its threads, up to now.
    std::chrono::nanoseconds processorTime() const;

  private:
    pid_t process_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_SERVER_PROCESS_H
