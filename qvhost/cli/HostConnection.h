// SPDX-License-Identifier: Apache-2.0

// Connects to the resident host that the options of the command line name.
#ifndef QVHOST_CLI_HOST_CONNECTION_H
#define QVHOST_CLI_HOST_CONNECTION_H

#include <QvClient.h>

#include <string>

#include "cli/CommandLine.h"

namespace qv::host {

std::string socketPath(const CommonOptions& options);

// Throws client::Error, which tells what to do if no host is there.
client::Client connectToHost(const CommonOptions& options);

// Says on standard error that the host has made a change but cannot keep it. `effect` says what the
// change has done and what a restart may do. Does nothing if the change is kept. Returns the exit
// status.
int reportChange(const client::ChangeResult& result, const std::string& effect);

}  // namespace qv::host

#endif  // QVHOST_CLI_HOST_CONNECTION_H
