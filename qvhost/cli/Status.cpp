// SPDX-License-Identifier: Apache-2.0

#include <cstdio>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/StatusOutput.h"
#include "cli/Subcommands.h"

namespace qv::host {

namespace {

constexpr char kStatusFooter[] =
    "Prints what the host tells about itself: whether a restart would find the directory of now,\n"
    "whether the plug-in's file holds it, what the last start did, and counts since then. With\n"
    "--json the output is one object on one line. Its times are seconds since 1970, and what\n"
    "does not apply is null.\n"
    "\n"
    "Exits with 1 if the directory is not kept, or if the host does not answer in time. So the\n"
    "command serves as a health check:\n"
    "\n"
    "  qvhost status --timeout 5";

int showStatus(const CommonOptions& options) {
    const client::HostStatus status = connectToHost(options).status();
    writeOutput(stdout, formatStatus(status, options.json ? Format::Json : Format::Table));
    return status.isKept ? kSuccess : kFailure;
}

}  // namespace

void addStatus(CommandLine& line) {
    line.add("status", "Show the state of the resident host", kStatusFooter,
             CommandLine::kHostOptions | CommandLine::kJsonOption,
             [&options = line.options()] { return showStatus(options); });
}

}  // namespace qv::host
