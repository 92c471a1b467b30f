// SPDX-License-Identifier: Apache-2.0

// Serialises the messages of requests and parses those of answers.
#ifndef QV_CLIENT_MESSAGES_H
#define QV_CLIENT_MESSAGES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "QvClient.h"

namespace qv::client {

// Each throws Error if the message would be too long.
std::string messageOfServices(const std::vector<Service>& services);
std::string messageOfIds(const std::vector<int32_t>& ids);
std::string messageOfLevel(int32_t level);
std::string messageOfFind(const std::vector<int32_t>& ids);
std::string messageOfHello();

// Returns nothing if the bytes are no list of services.
std::optional<std::vector<Service>> servicesOf(const std::string& message);

// Returns nothing if the bytes are no hello of a host.
std::optional<HostAbilities> abilitiesOf(const std::string& message);

// Returns nothing if the bytes are no status.
std::optional<HostStatus> statusOf(const std::string& message);

}  // namespace qv::client

#endif  // QV_CLIENT_MESSAGES_H
