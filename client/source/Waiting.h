// SPDX-License-Identifier: Apache-2.0

// Waits until services are registered.
#ifndef QV_CLIENT_WAITING_H
#define QV_CLIENT_WAITING_H

#include <cstdint>
#include <vector>

#include "Deadline.h"
#include "QvClient.h"

namespace qv::client {

// Returns the services as soon as all are registered, as Client::waitFor() says.
std::vector<Service> waitForServices(const ClientOptions& options, const std::vector<int32_t>& ids,
                                     const Deadline& deadline);

}  // namespace qv::client

#endif  // QV_CLIENT_WAITING_H
