// SPDX-License-Identifier: Apache-2.0

// Makes the requests that bring the plug-in's list of services up to a snapshot.
#ifndef QVHOST_SERVER_PLUGIN_REQUESTS_H
#define QVHOST_SERVER_PLUGIN_REQUESTS_H

#include <cstdint>
#include <string>

#include "server/Plugin.h"
#include "server/Snapshot.h"

namespace qv::host {

// The inputs of the commands QV_COMMAND_UNREGISTER_SERVICES and QV_COMMAND_REGISTER_SERVICES, in
// this order. An empty input stands for no command.
struct PluginRequests {
    std::string withdrawal;
    std::string registration;
};

// Returns the requests that carry out the edits, which lead to `target`. The plug-in only saves at
// a registration that changes something. So if there is none, a service of the target is withdrawn
// and registered again. Only an empty target leads to no save. Throws std::bad_alloc.
PluginRequests requestsFor(const Edits& edits, const Snapshot& target);

// Returns the services that the plug-in holds. Throws PluginError and std::bad_alloc.
SnapshotPointer servicesOf(const Plugin& plugin);

// Executes a command that has no answer. Throws PluginError also if its result is not QV_OK.
void execute(const Plugin& plugin, uint32_t command, const std::string& input);

}  // namespace qv::host

#endif  // QVHOST_SERVER_PLUGIN_REQUESTS_H
