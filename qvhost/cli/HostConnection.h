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

}  // namespace qv::host

#endif  // QVHOST_CLI_HOST_CONNECTION_H
