// The resident host, as the command line's options say.
#ifndef QVHOST_CLI_HOST_CONNECTION_H
#define QVHOST_CLI_HOST_CONNECTION_H

#include <QvClient.h>

#include <string>

#include "cli/CommandLine.h"

namespace qv::host {

std::string socketPath(const CommonOptions& options);

// Throws client::Error, which says what to do where no host is there.
client::Client connectToHost(const CommonOptions& options);

}  // namespace qv::host

#endif  // QVHOST_CLI_HOST_CONNECTION_H
