// SPDX-License-Identifier: Apache-2.0

// Turns what the C++ library returns and throws into what qv_client.h returns.
#ifndef QV_CLIENT_C_RESULTS_H
#define QV_CLIENT_C_RESULTS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <vector>

#include "QvClient.h"
#include "qv_client.h"

namespace qv::client {

// Fills the caller's error, which may be null. Returns the result.
int report(qv_client_error* error, qv_client_result result, int32_t code,
           const char* text) noexcept;
int report(qv_client_error* error, const Error& thrown) noexcept;

// Runs the action, which returns a result and may throw. Lets no exception pass.
template <typename Action>
int guarded(qv_client_error* error, Action action) noexcept {
    try {
        return action();
    } catch (const Error& thrown) {
        return report(error, thrown);
    } catch (...) {
        // The library throws nothing else, except where there is no memory.
        return report(error, QV_CLIENT_NO_MEMORY, 0, "out of memory");
    }
}

std::chrono::milliseconds timeoutOf(int timeout);

inline std::vector<int32_t> idsOf(const int32_t* ids, std::size_t count) {
    return count == 0 ? std::vector<int32_t>() : std::vector<int32_t>(ids, ids + count);
}

// Owns services for C.
class ServicesForC {
  public:
    explicit ServicesForC(std::vector<Service> services);
    ~ServicesForC() = default;

    ServicesForC(const ServicesForC&) = delete;
    ServicesForC& operator=(const ServicesForC&) = delete;

    qv_service_list list() const { return {views_.data(), views_.size()}; }

  private:
    const std::vector<Service> services_;
    std::vector<qv_service> views_;
};

}  // namespace qv::client

#endif  // QV_CLIENT_C_RESULTS_H
