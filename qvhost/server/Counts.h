// SPDX-License-Identifier: Apache-2.0

// Counts requests and refusals for the status of the host. Any number of threads may use an object.
#ifndef QVHOST_SERVER_COUNTS_H
#define QVHOST_SERVER_COUNTS_H

#include <QvFrame.h>
#include <QvPlugin.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace qv::host {

class Counts {
  public:
    // The commands that the host has.
    static constexpr std::array<uint32_t, 10> kCommands = {
        QV_HOST_COMMAND_PING,       QV_HOST_COMMAND_STATUS,       QV_HOST_COMMAND_SYNC,
        QV_HOST_COMMAND_HELLO,      QV_HOST_COMMAND_FIND,         QV_HOST_COMMAND_SUBSCRIBE,
        QV_COMMAND_SET_DEBUG_LEVEL, QV_COMMAND_REGISTER_SERVICES, QV_COMMAND_UNREGISTER_SERVICES,
        QV_COMMAND_GET_SERVICES};

    // Do nothing for a code that is not listed here.
    void request(uint32_t command) { count(kCommands, requests_, command); }
    void refusal(uint32_t result) { count(kResults, refusals_, result); }

    // Call function(code, count) for each code that occurred.
    template <typename Function>
    void forEachRequest(Function function) const {
        forEach(kCommands, requests_, function);
    }
    template <typename Function>
    void forEachRefusal(Function function) const {
        forEach(kResults, refusals_, function);
    }

  private:
    static constexpr std::array<uint32_t, 14> kResults = {
        QV_ERROR_ARGUMENT,       QV_ERROR_NO_MEMORY,      QV_HOST_ERROR_FORBIDDEN,
        QV_HOST_ERROR_CLIENTS,   QV_HOST_ERROR_LENGTH,    QV_HOST_ERROR_TIMEOUT,
        QV_HOST_ERROR_STOPPING,  QV_HOST_ERROR_COMMAND,   QV_HOST_ERROR_PLUGIN,
        QV_HOST_ERROR_REFUSED,   QV_HOST_ERROR_NOT_KEPT,  QV_HOST_ERROR_FILE,
        QV_HOST_ERROR_PRIVILEGE, QV_HOST_ERROR_SUBSCRIBED};

    template <std::size_t N>
    using Numbers = std::array<std::atomic<uint64_t>, N>;

    template <std::size_t N>
    static void count(const std::array<uint32_t, N>& codes, Numbers<N>& numbers, uint32_t code) {
        for (std::size_t i = 0; i < N; ++i) {
            if (codes[i] == code) {
                numbers[i].fetch_add(1, std::memory_order_relaxed);
                return;
            }
        }
    }

    template <std::size_t N, typename Function>
    static void forEach(const std::array<uint32_t, N>& codes, const Numbers<N>& numbers,
                        Function function) {
        for (std::size_t i = 0; i < N; ++i) {
            if (const uint64_t number = numbers[i].load(std::memory_order_relaxed); number != 0) {
                function(codes[i], number);
            }
        }
    }

    Numbers<kCommands.size()> requests_ = {};
    Numbers<kResults.size()> refusals_ = {};
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_COUNTS_H
