// Shows the directory on standard output.
#ifndef QVHOST_CLI_LISTING_H
#define QVHOST_CLI_LISTING_H

#include <vector>

#include "cli/Output.h"
#include "cli/Service.h"

namespace qv::host {

bool isTerminal(int descriptor);

// As formatServices() has it, and on a terminal made for eyes: a table's heading stands out, unless
// the environment's NO_COLOR is set, and CSV shows control characters escaped. Throws
// std::system_error.
void writeListing(const std::vector<Service>& services, Format format);

}  // namespace qv::host

#endif  // QVHOST_CLI_LISTING_H
