// SPDX-License-Identifier: Apache-2.0

// Prints the directory on standard output.
#ifndef QVHOST_CLI_LISTING_H
#define QVHOST_CLI_LISTING_H

#include <vector>

#include "cli/Output.h"
#include "server/Service.h"

namespace qv::host {

bool isTerminal(int descriptor);

// Prints the services as formatServices() returns them. On a terminal, a table has a bold heading
// unless NO_COLOR in the environment is set, a line of a table is cut at the width of the terminal,
// and CSV shows control characters escaped. Throws std::system_error.
void writeListing(const std::vector<Service>& services, Format format);

}  // namespace qv::host

#endif  // QVHOST_CLI_LISTING_H
