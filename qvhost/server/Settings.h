// What a resident host is told before it starts. A time of 0 stands for no bound, but
// for stopTimeout, which must have one.
#ifndef QVHOST_SERVER_SETTINGS_H
#define QVHOST_SERVER_SETTINGS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "server/Access.h"

namespace qv::host {

struct ServerSettings {
    std::string socket;
    unsigned threads = 2;  // that read; others help them while requests take long
    uint32_t maxMessage = 16 * 1024 * 1024;
    std::size_t maxClients = 1024;
    std::chrono::milliseconds idleTimeout{0};
    std::chrono::milliseconds frameTimeout{10'000};
    std::chrono::milliseconds stopTimeout{10'000};
    AccessRules access;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_SETTINGS_H
