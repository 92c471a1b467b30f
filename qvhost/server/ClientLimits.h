// SPDX-License-Identifier: Apache-2.0

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

// The following bounds hold for each client beside the budget of all clients. They are small enough
// for that, and most requests and answers need not ask the budget.

// A thread reads this many bytes of a client at once, and then turns to the next client. Requests
// that are longer come out of the budget.
constexpr std::size_t kSharedReadBuffer = std::size_t{16} * 1024;

// Answers wait for each other until they have this many bytes. Longer ones come out of the budget.
constexpr std::size_t kBytesOfAnswers = std::size_t{64} * 1024;

// A subscription takes further events when it has fewer bytes than these to send.
constexpr std::size_t kBytesOfEvents = std::size_t{16} * 1024;

// As many short changes of one client go to the recorder together.
constexpr std::size_t kChangesOfBatch = 256;

// A client that is sent nothing keeps a buffer of at most this size.
constexpr std::size_t kIdleAnswerBuffer = std::size_t{4} * 1024;

// The host admits at most this many of the clients that wait at a socket that ends, or a flood of
// clients would keep it from ending.
constexpr int kClientsAdmittedAtOnce = 4096;

}  // namespace qv::host

#endif  // QVHOST_SERVER_CLIENT_LIMITS_H
