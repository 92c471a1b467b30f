#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "ExitStatus.h"
#include "LineReader.h"
#include "Output.h"
#include "PluginUse.h"
#include "Session.h"
#include "StandardStreams.h"

namespace qv::host {

namespace {

constexpr char kFooter[] =
    "The script holds one command a line:\n"
    "\n"
    "  register ID ADDRESS  bind an address to an identifier; the address is the rest of the\n"
    "                       line, white space inside included\n"
    "  unregister ID        withdraw a service\n"
    "  list                 print the directory\n"
    "  level N              set the debug level of the plug-in's log, 0 (least) to 7 (most)\n"
    "  restart              finalise the plug-in and initialise it again\n"
    "\n"
    "A # at the start of a line or after white space begins a comment. An identifier is a signed\n"
    "32-bit number, decimal or from 0x0 to 0x7fffffff.\n"
    "\n"
    "A named script is checked completely before its first command is executed. Standard input\n"
    "is executed line by line as it arrives. The first error ends the run; what was executed\n"
    "before it stays done. With --json every `list` prints one JSON array on a line of its own.\n"
    "\n"
    "  qvhost --config-dir state --log-dir log run services.txt";

Format formatOf(const CommonOptions& options) {
    return options.json ? Format::Json : Format::Table;
}

int runStandardInput(const CommonOptions& options) {
    const std::unique_ptr<Plugin> plugin = loadPlugin(options);
    initializePlugin(*plugin, options);
    if (isatty(STDIN_FILENO) != 0) {
        reportError("reading commands from the terminal, one a line; Ctrl-D ends");
    }
    Session(*plugin, formatOf(options), stdout).runLines(LineReader::standardInput());
    plugin->finalize();
    return kSuccess;
}

int runFile(const std::string& path, const CommonOptions& options) {
    std::vector<std::string> problems;
    const std::vector<Session::PlacedCommand> script =
        Session::readScript(LineReader::openFile(path), problems);
    for (const std::string& problem : problems) {
        reportError(problem);
    }
    if (!problems.empty()) {
        return kWrongUse;
    }
    const std::unique_ptr<Plugin> plugin = loadPlugin(options);
    initializePlugin(*plugin, options);
    Session(*plugin, formatOf(options), stdout).runScript(script);
    plugin->finalize();
    return kSuccess;
}

}  // namespace

void addRunCommand(CommandLine& line) {
    const auto script = std::make_shared<std::string>("-");
    CLI::App& command =
        line.add("run", "Execute a script of commands", kFooter,
                 CommandLine::kPluginOptions | CommandLine::kJsonOption,
                 [script, &options = line.options()] {
                     setExistingDirectories(options);
                     return *script == "-" ? runStandardInput(options) : runFile(*script, options);
                 });
    command.add_option("SCRIPT", *script, "The script; standard input when absent or -")
        ->type_name("");
}

}  // namespace qv::host
