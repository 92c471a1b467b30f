// SPDX-License-Identifier: Apache-2.0

#include <memory>
#include <string>

#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/Numbers.h"
#include "cli/Subcommands.h"

namespace qv::host {

namespace {

constexpr char kLevelFooter[] =
    "The level holds until the resident host reloads its configuration or ends. At its start and\n"
    "at a reload, the host takes the level of the configuration. Only root and the host's own\n"
    "user may set the level.\n"
    "\n"
    "  qvhost level 7";

}  // namespace

void addLevel(CommandLine& line) {
    const auto level = std::make_shared<std::string>();
    line.add("level", "Set the debug level of the plug-in's log", kLevelFooter,
             CommandLine::kHostOptions,
             [level, &options = line.options()] {
                 const int32_t number = parseLevel(*level);
                 connectToHost(options).setDebugLevel(number);
                 return int{kSuccess};
             })
        .word("N", *level, "0 (least) to 7 (most)");
}

}  // namespace qv::host
