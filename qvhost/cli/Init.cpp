// SPDX-License-Identifier: Apache-2.0

#include <cstdio>
#include <optional>
#include <string>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/Output.h"
#include "cli/PluginUse.h"
#include "cli/Subcommands.h"
#include "server/PluginError.h"
#include "server/StoredFile.h"

namespace qv::host {

namespace {

constexpr char kInitFooter[] =
    "The plug-in keeps the directory in a configuration file, which it never makes itself. This\n"
    "makes the file in the directory of --config-dir, that directory if it is missing, and the\n"
    "directory of the backup. The file holds no services. If something stands in the place of\n"
    "the file, of its backup or of the host's record, qvhost leaves it alone and fails. It loads\n"
    "the plug-in but does not initialise it. With --json the output is one object on one line:\n"
    "\n"
    "  {\"path\":\"...\"}";

int init(const CommonOptions& options) {
    setDirectories(options);
    const std::optional<std::string> path = loadPlugin(options)->configurationPath();
    if (!path) {
        throw PluginError("the plug-in does not tell where its configuration is");
    }
    StoredFile(*path).make();
    writeOutput(stdout, formatMadeFile(*path, options.json ? Format::Json : Format::Table));
    return kSuccess;
}

}  // namespace

void addInit(CommandLine& line) {
    line.add(
        "init", "Make the file that the plug-in keeps the directory in", kInitFooter,
        CommandLine::kConfigurationOption | CommandLine::kPluginOptions | CommandLine::kJsonOption,
        [&options = line.options()] { return init(options); });
}

}  // namespace qv::host
