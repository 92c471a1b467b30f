// Shows a directory that changes.
#ifndef QVHOST_CLI_WATCH_H
#define QVHOST_CLI_WATCH_H

#include <chrono>

#include "cli/CommandLine.h"
#include "cli/Output.h"

namespace qv::host {

// Asks the resident host again and again, and prints the directory whenever it is another; a
// terminal shows the latest alone. Returns when nobody reads the output any more; SIGINT and
// SIGTERM end the program with success. A host that goes away is waited for, one that was never
// there is an error. Throws client::Error and std::system_error.
void watchServices(const CommonOptions& options, Format format, std::chrono::milliseconds interval);

}  // namespace qv::host

#endif  // QVHOST_CLI_WATCH_H
