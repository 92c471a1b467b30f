// Holds every bound on what a client may take of the host.
#ifndef QVHOST_SERVER_CLIENT_LIMITS_H
#define QVHOST_SERVER_CLIENT_LIMITS_H

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace qv::host {

// The options of `qvhost serve` set these. A time of 0 stands for no bound.
struct ClientLimits {
    uint32_t maxMessage = 16 * 1024 * 1024;  // bytes of a request without its header
    std::size_t maxClients = 1024;           // connected at once
    std::size_t maxMemory = std::size_t{256} * 1024 * 1024;  // bytes of all requests and answers
    std::chrono::milliseconds idleTimeout{0};
    std::chrono::milliseconds frameTimeout{10'000};
};

// Answers wait for each other until they have this many bytes. So a client that asks without end
// neither fills the memory nor keeps a thread.
constexpr std::size_t kBytesOfAnswers = std::size_t{256} * 1024;

// A client keeps a thread for this long. Many short requests may have arrived, each of which saves
// the directory. The client goes on when the others had their turn.
constexpr std::chrono::milliseconds kTurn(10);

// The buffers of a client that sends nothing and of a client that is sent nothing.
constexpr std::size_t kIdleRequestBuffer = std::size_t{16} * 1024;
constexpr std::size_t kIdleAnswerBuffer = std::size_t{16} * 1024;

// The host admits at most this many of the clients that wait when it stops, or a flood of clients
// would keep it alive.
constexpr int kClientsAdmittedAtStop = 4096;

}  // namespace qv::host

#endif  // QVHOST_SERVER_CLIENT_LIMITS_H
