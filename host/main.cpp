// qvhost loads the naming service's plug-in and puts it to work by hand or from a script. This file
// is its command line; what the commands do is Session's and Plugin's.
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "Command.h"
#include "ConfigurationFile.h"
#include "HostPaths.h"
#include "Output.h"
#include "Plugin.h"
#include "PluginError.h"
#include "ScriptError.h"
#include "Session.h"
#include "StandardStreams.h"
#include "Suggestion.h"

namespace {

using qv::host::Command;
using qv::host::ConfigurationFile;
using qv::host::Format;
using qv::host::LineReader;
using qv::host::Plugin;
using qv::host::PluginError;
using qv::host::Session;

enum ExitStatus { kSuccess = 0, kFailure = 1, kWrongUse = 2 };

constexpr char kDescription[] =
    "Puts the naming service's plug-in to work by hand: loads it, sends it the commands of a\n"
    "script, and shows its directory of services.\n";

constexpr char kFooter[] =
    "Options may stand before or after the command; `qvhost COMMAND --help` says more.\n"
    "\n"
    "The plug-in is looked for beside qvhost, in ../lib, and in the library directory of the\n"
    "installation. Its configuration and its diagnostic log are in the system's directories,\n"
    "which only an administrator can write; anybody else gives directories of their own:\n"
    "\n"
    "  qvhost --config-dir state init\n"
    "  qvhost --config-dir state --log-dir log run services.txt\n"
    "  qvhost --config-dir state --log-dir log list --json\n"
    "  qvhost info\n"
    "  printf 'register 1 /run/a.sock\\nlist\\n' | qvhost --config-dir state --log-dir log run\n"
    "\n"
    "Exit status: 0 success; 1 the plug-in, a file or the output failed; 2 wrong use, which a\n"
    "mistake in a script's text is too.";

constexpr char kInitFooter[] =
    "The plug-in keeps the directory in a configuration file and never makes one itself: without\n"
    "it, the services are gone when the host ends. The file is made in the directory of\n"
    "--config-dir, which is made when missing, and holds nothing yet. Whatever stands in its\n"
    "place, or in its backup's, is left alone, and is a failure. The plug-in is loaded but not\n"
    "initialised. With --json the output is one object on one line:\n"
    "\n"
    "  {\"path\":\"...\"}";

constexpr char kRunFooter[] =
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

constexpr char kListFooter[] =
    "The table shows control characters, and bytes that are not UTF-8, escaped as in \\x1b. With\n"
    "--json the directory is one array on one line, in which U+FFFD replaces bytes that are not\n"
    "UTF-8:\n"
    "\n"
    "  [{\"id\":1,\"address\":\"/run/a.sock\"},{\"id\":2,\"address\":\"tcp://127.0.0.1:9000\"}]";

constexpr char kInfoFooter[] =
    "The plug-in is loaded but not initialised: no file of its is touched. With --json the output\n"
    "is one object on one line:\n"
    "\n"
    "  {\"path\":\"...\",\"id\":2,\"commands\":[{\"code\":\"0x0200\",\"name\":\"...\"}]}";

struct Options {
    std::string plugin;
    std::string configDirectory;
    std::string logDirectory;
    std::string script = "-";
    bool json = false;

    Format format() const { return json ? Format::Json : Format::Table; }
};

// For the program and for each of its commands, so that either place will do and every --help is
// complete.
void addCommonOptions(CLI::App& app, Options& options) {
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "qvhost " QVHOST_VERSION "\n", "Print the version and exit");
    // An empty name is a shell variable that was not set; the default would be a surprise.
    const CLI::Validator notEmpty(
        [](const std::string& value) {
            return value.empty() ? std::string("the name is empty") : std::string();
        },
        "");
    app.add_option("--plugin", options.plugin, "The plug-in's library, instead of looking for it")
        ->type_name("FILE")
        ->check(notEmpty);
    app.add_option("--config-dir", options.configDirectory,
                   "Directory of the configuration files (sets QV_CONFIG_DIR)")
        ->type_name("DIR")
        ->check(notEmpty);
    app.add_option("--log-dir", options.logDirectory,
                   "Directory of the diagnostic log, made when missing (sets QV_LOG_DIR)")
        ->type_name("DIR")
        ->check(notEmpty);
    app.add_flag("--json", options.json, "Print JSON instead of a table");
}

CLI::App* addCommand(CLI::App& app, Options& options, const std::string& name,
                     const std::string& description, const std::string& footer) {
    CLI::App* const command = app.add_subcommand(name, description);
    addCommonOptions(*command, options);
    command->footer(footer);
    return command;
}

int wrongUse(const std::string& message) {
    qv::host::reportError(message);
    return kWrongUse;
}

int unknownWord(const std::string& kind, const std::string& word,
                const std::vector<std::string_view>& known) {
    const std::string_view closest = qv::host::closestWord(word, known);
    return wrongUse(fmt::format("unknown {} '{}' ({})", kind, word,
                                closest.empty() ? std::string("see qvhost --help")
                                                : fmt::format("did you mean '{}'?", closest)));
}

// The library looks at what is missing before it looks at what is wrong, so that a misspelt option
// or command would be reported as no command.
int wrongCommandLine(const CLI::App& app, const CLI::ParseError& error) {
    constexpr bool kOfCommandsToo = true;
    const std::vector<std::string> extras = app.remaining(kOfCommandsToo);
    if (extras.empty()) {
        return wrongUse(app.get_subcommands().empty() && error.get_name() == "RequiredError"
                            ? "no command; it is init, run, list or info (see qvhost --help)"
                            : fmt::format("{} (see qvhost --help)", error.what()));
    }
    // What follows a lone -- is meant as a word.
    const std::string& word =
        extras.front() == "--" && extras.size() > 1 ? extras[1] : extras.front();
    if (word.substr(0, 1) == "-") {
        return unknownWord(
            "option", word,
            {"--help", "--version", "--plugin", "--config-dir", "--log-dir", "--json"});
    }
    if (app.get_subcommands().empty()) {
        return unknownWord("command", word, {"init", "run", "list", "info"});
    }
    return wrongUse(fmt::format("'{}' is one argument too many (see qvhost --help)", word));
}

void setDirectory(const char* variable, const std::string& directory) {
    if (!directory.empty() && setenv(variable, directory.c_str(), 1) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                std::string("cannot set the environment variable ") + variable);
    }
}

std::unique_ptr<Plugin> loadPlugin(const Options& options) {
    return std::make_unique<Plugin>(
        options.plugin.empty() ? qv::host::findPlugin(qv::host::programDirectory()).string()
                               : options.plugin);
}

// The plug-in works on without a log or a file to keep the services in, and says nothing of it.
void initialize(Plugin& plugin, const Options& options) {
    plugin.initialize();
    std::error_code ignored;
    if (!options.logDirectory.empty() &&
        !std::filesystem::is_directory(options.logDirectory, ignored)) {
        qv::host::reportError(fmt::format(
            "warning: --log-dir {}: the plug-in made no such directory, so no log is there",
            options.logDirectory));
    }
    const std::optional<std::string> path = plugin.configurationPath();
    const std::string problem = path ? ConfigurationFile(*path).problem() : "";
    if (!problem.empty()) {
        qv::host::reportError("warning: services are not kept: " + problem);
    }
}

int init(const Options& options) {
    const std::optional<std::string> path = loadPlugin(options)->configurationPath();
    if (!path) {
        throw PluginError("the plug-in does not tell where its configuration is");
    }
    ConfigurationFile(*path).make();
    qv::host::writeOutput(stdout, qv::host::formatMadeFile(*path, options.format()));
    return kSuccess;
}

int info(const Options& options) {
    const std::unique_ptr<Plugin> plugin = loadPlugin(options);
    qv::host::writeOutput(stdout, formatInfo(*plugin, options.format()));
    return kSuccess;
}

int list(const Options& options) {
    const std::unique_ptr<Plugin> plugin = loadPlugin(options);
    initialize(*plugin, options);
    Command command;
    command.verb = Command::Verb::List;
    Session(*plugin, options.format(), stdout).execute(command);
    plugin->finalize();
    return kSuccess;
}

int runStandardInput(const Options& options) {
    const std::unique_ptr<Plugin> plugin = loadPlugin(options);
    initialize(*plugin, options);
    if (isatty(STDIN_FILENO) != 0) {
        qv::host::reportError("reading commands from the terminal, one a line; Ctrl-D ends");
    }
    Session(*plugin, options.format(), stdout).runLines(LineReader::standardInput());
    plugin->finalize();
    return kSuccess;
}

int runFile(const Options& options) {
    std::vector<std::string> problems;
    const std::vector<Session::PlacedCommand> script =
        Session::readScript(LineReader::openFile(options.script), problems);
    for (const std::string& problem : problems) {
        qv::host::reportError(problem);
    }
    if (!problems.empty()) {
        return kWrongUse;
    }
    const std::unique_ptr<Plugin> plugin = loadPlugin(options);
    initialize(*plugin, options);
    Session(*plugin, options.format(), stdout).runScript(script);
    plugin->finalize();
    return kSuccess;
}

int parseAndRun(int argc, char** argv) {
    Options options;
    CLI::App app(kDescription, "qvhost");
    addCommonOptions(app, options);
    app.footer(kFooter);
    const CLI::App* const initCommand = addCommand(
        app, options, "init", "Make the file that the plug-in keeps the directory in", kInitFooter);
    CLI::App* const runCommand =
        addCommand(app, options, "run", "Execute a script of commands", kRunFooter);
    runCommand->add_option("SCRIPT", options.script, "The script; standard input when absent or -")
        ->type_name("");
    const CLI::App* const listCommand =
        addCommand(app, options, "list", "Print the directory of services", kListFooter);
    const CLI::App* const infoCommand = addCommand(
        app, options, "info", "Print the plug-in's path, identifier and commands", kInfoFooter);
    app.require_subcommand(1);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        qv::host::writeOutput(stdout, app.help());
        return kSuccess;
    } catch (const CLI::CallForVersion& version) {
        qv::host::writeOutput(stdout, version.what());
        return kSuccess;
    } catch (const CLI::ParseError& error) {
        return wrongCommandLine(app, error);
    }
    setDirectory("QV_CONFIG_DIR", options.configDirectory);
    setDirectory("QV_LOG_DIR", options.logDirectory);
    if (initCommand->parsed()) {
        return init(options);
    }
    std::error_code ignored;
    if (!options.configDirectory.empty() &&
        !std::filesystem::is_directory(options.configDirectory, ignored)) {
        // The plug-in makes no directory there, and does not say when it cannot save.
        return wrongUse(fmt::format("--config-dir {}: no such directory", options.configDirectory));
    }
    if (infoCommand->parsed()) {
        return info(options);
    }
    if (listCommand->parsed()) {
        return list(options);
    }
    return options.script == "-" ? runStandardInput(options) : runFile(options);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        qv::host::guardStandardStreams();
        return parseAndRun(argc, argv);
    } catch (const qv::host::ScriptError& error) {
        qv::host::reportError(error.what());
        return kWrongUse;
    } catch (const std::bad_alloc&) {
        qv::host::reportError("out of memory");
        return kFailure;
    } catch (const std::exception& error) {
        qv::host::reportError(error.what());
        return kFailure;
    }
}
