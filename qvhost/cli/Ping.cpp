// SPDX-License-Identifier: Apache-2.0

#include <QvText.h>
#include <fmt/format.h>

#include <chrono>
#include <cstdio>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/Subcommands.h"

namespace qv::host {

namespace {

constexpr char kPingFooter[] =
    "Prints how long the answer took. Fails if there is none.\n"
    "\n"
    "  $ qvhost ping\n"
    "  pong from /run/Vornak/LorxCore/namingService.sock: time=0.071 ms";

int ping(const CommonOptions& options) {
    using Clock = std::chrono::steady_clock;
    client::Client host = connectToHost(options);
    const Clock::time_point sent = Clock::now();
    host.ping();
    const std::chrono::duration<double, std::milli> time = Clock::now() - sent;
    writeOutput(stdout, fmt::format("pong from {}: time={:.3f} ms\n",
                                    text::escaped(socketPath(options)), time.count()));
    return kSuccess;
}

}  // namespace

void addPing(CommandLine& line) {
    line.add("ping", "Check that the resident host answers", kPingFooter, CommandLine::kHostOptions,
             [&options = line.options()] { return ping(options); });
}

}  // namespace qv::host
