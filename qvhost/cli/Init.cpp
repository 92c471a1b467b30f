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
    "The plug-in keeps the directory in a configuration file, which it never makes itself. "
    "Without\n"
    "the file, the services are gone when the host ends. This makes the file in the directory of\n"
    "--config-dir, and the directory if it is missing. The file holds no services. If something\n"
    "stands in the place of the file or of its backup, the command leaves it alone and fails. It\n"
    "loads the plug-in but does not initialise it. With --json the output is one object on one\n"
    "line:\n"
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
