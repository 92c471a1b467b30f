// SPDX-License-Identifier: Apache-2.0

// Holds what a resident host is told before it starts.
#ifndef QVHOST_SERVER_SETTINGS_H
#define QVHOST_SERVER_SETTINGS_H

#include <chrono>
#include <string>

#include "server/Access.h"
#include "server/ClientLimits.h"

namespace qv::host {

struct ServerSettings {
    std::string socket;
    std::string configuration;  // the plug-in's file, beside which the record is
    std::string version;        // for the status and the hello
    unsigned threads = 2;       // that read and answer requests
    ClientLimits limits;
    std::chrono::milliseconds stopTimeout{10'000};  // never 0
    AccessRules access;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_SETTINGS_H
