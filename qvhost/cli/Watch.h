// Shows a directory while it changes.
#ifndef QVHOST_CLI_WATCH_H
#define QVHOST_CLI_WATCH_H

#include <chrono>

#include "cli/CommandLine.h"
#include "cli/Output.h"

namespace qv::host {

// Asks the resident host at each interval and prints the directory whenever it has changed. A
// terminal shows only the latest. Returns when nobody reads the output any more. SIGINT and SIGTERM
// end the program with success. If the host goes away, waits until it is back. Throws client::Error
// if there is no host at the start, and std::system_error if the output fails.
void watchServices(const CommonOptions& options, Format format, std::chrono::milliseconds interval);

}  // namespace qv::host

#endif  // QVHOST_CLI_WATCH_H
