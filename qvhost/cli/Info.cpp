// SPDX-License-Identifier: Apache-2.0

#include <cstdio>
#include <memory>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/Output.h"
#include "cli/PluginUse.h"
#include "cli/Subcommands.h"

namespace qv::host {

namespace {

constexpr char kInfoFooter[] =
    "Loads the plug-in but does not initialise it, so that the plug-in opens no file. With --json\n"
    "the output is one object on one line:\n"
    "\n"
    "  {\"path\":\"...\",\"id\":2,\"commands\":[{\"code\":\"0x0200\",\"name\":\"...\"}]}";

int info(const CommonOptions& options) {
    setExistingDirectories(options);
    const std::unique_ptr<Plugin> plugin = loadPlugin(options);
    writeOutput(stdout, formatInfo(*plugin, options.json ? Format::Json : Format::Table));
    return kSuccess;
}

}  // namespace

void addInfo(CommandLine& line) {
    line.add(
        "info", "Print the plug-in's path, identifier and commands", kInfoFooter,
        CommandLine::kConfigurationOption | CommandLine::kPluginOptions | CommandLine::kJsonOption,
        [&options = line.options()] { return info(options); });
}

}  // namespace qv::host
