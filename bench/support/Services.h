// SPDX-License-Identifier: Apache-2.0

// Makes the services that benchmarks register.
#ifndef QV_BENCH_SERVICES_H
#define QV_BENCH_SERVICES_H

#include <cstdint>
#include <string>

#include "namingService.pb.h"

namespace qv::bench {

inline std::string addressOf(int id) {
    return "unix:/var/run/lorx/service-" + std::to_string(id) + ".sock";
}

template <class Array>
Array servicesUpTo(int count) {
    Array array;
    for (int id = 0; id < count; ++id) {
        auto* service = array.add_services();
        service->set_id(id);
        service->set_address(addressOf(id));
    }
    return array;
}

// Returns the request to register one service.
inline std::string registration(int id, const std::string& address) {
    qor::kevra::ServiceInfoArray array;
    auto* service = array.add_services();
    service->set_id(id);
    service->set_address(address);
    return array.SerializeAsString();
}

}  // namespace qv::bench

#endif  // QV_BENCH_SERVICES_H
