#include <cstdio>
#include <optional>
#include <string>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/Output.h"
#include "cli/PluginUse.h"
#include "cli/StoredServices.h"
#include "cli/Subcommands.h"
#include "server/PluginError.h"

namespace qv::host {

namespace {

constexpr char kFooter[] =
    "The plug-in keeps the directory in a configuration file and never makes one itself: without\n"
    "it, the services are gone when the host ends. The file is made in the directory of\n"
    "--config-dir, which is made when missing, and holds nothing yet. Whatever stands in its\n"
    "place, or in its backup's, is left alone, and is a failure. The plug-in is loaded but not\n"
    "initialised. With --json the output is one object on one line:\n"
    "\n"
    "  {\"path\":\"...\"}";

int init(const CommonOptions& options) {
    setDirectories(options);
    const std::optional<std::string> path = loadPlugin(options)->configurationPath();
    if (!path) {
        throw PluginError("the plug-in does not tell where its configuration is");
    }
    StoredServices(*path).make();
    writeOutput(stdout, formatMadeFile(*path, options.json ? Format::Json : Format::Table));
    return kSuccess;
}

}  // namespace

void addInit(CommandLine& line) {
    line.add(
        "init", "Make the file that the plug-in keeps the directory in", kFooter,
        CommandLine::kConfigurationOption | CommandLine::kPluginOptions | CommandLine::kJsonOption,
        [&options = line.options()] { return init(options); });
}

}  // namespace qv::host
