// SPDX-License-Identifier: Apache-2.0

#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/Subcommands.h"

namespace qv::host {

namespace {

constexpr char kSyncFooter[] =
    "The host keeps the directory in a record of its own, and the plug-in's file follows within\n"
    "about a second. This waits until the file holds the directory of now. If the file cannot\n"
    "follow, for example because it may not be written, qvhost says why and exits with 1.\n"
    "\n"
    "  qvhost sync --timeout 60";

}  // namespace

void addSync(CommandLine& line) {
    line.add("sync", "Wait until the plug-in's file holds the directory", kSyncFooter,
             CommandLine::kHostOptions, [&options = line.options()] {
                 connectToHost(options).sync();
                 return int{kSuccess};
             });
}

}  // namespace qv::host
