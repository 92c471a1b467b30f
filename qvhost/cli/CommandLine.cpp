#include "cli/CommandLine.h"

#include <fmt/format.h>

#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/Suggestion.h"
#include "cli/UsageError.h"

namespace qv::host {

namespace {

constexpr char kDescription[] =
    "Runs the naming service as a resident host, or talks to the resident host.\n";

constexpr char kFooter[] =
    "Options may stand before or after the subcommand. `qvhost SUBCOMMAND --help` says more.\n"
    "\n"
    "`qvhost serve` is the resident host. Most other subcommands ask it over its socket, which\n"
    "is in the system's directory or where --socket or QV_RUN_DIR says:\n"
    "\n"
    "  qvhost register 1 /run/a.sock 2 tcp://127.0.0.1:9000\n"
    "  qvhost list --json\n"
    "  qvhost export services.csv\n"
    "\n"
    "The host looks for the plug-in beside qvhost, in ../lib, and in the library directory of\n"
    "the installation. The configuration and the diagnostic log are in the system's\n"
    "directories, which only an administrator can write. Other users name directories of their\n"
    "own:\n"
    "\n"
    "  qvhost --config-dir state init\n"
    "  qvhost --config-dir state --log-dir log serve --socket state/host.sock\n"
    "  qvhost --socket state/host.sock import services.csv\n"
    "  qvhost --config-dir state list --offline\n"
    "\n"
    "Exit status: 0 means success, 1 means that the plug-in, the resident host, a file or the\n"
    "output failed or that a change is not kept, 2 means wrong use or a mistake in an imported\n"
    "file.";

std::vector<std::string> subcommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* const subcommand : app.get_subcommands(nullptr)) {
        names.push_back(subcommand->get_name());
    }
    return names;
}

std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

UsageError unknownWord(const std::string& kind, const std::string& word,
                       const std::vector<std::string>& known) {
    const std::string_view closest = closestWord(word, {known.begin(), known.end()});
    return UsageError(fmt::format("unknown {} '{}' ({})", kind, word,
                                  closest.empty() ? std::string("see qvhost --help")
                                                  : fmt::format("did you mean '{}'?", closest)));
}

}  // namespace

CLI::Validator notEmpty() {
    return {[](const std::string& value) {
                return value.empty() ? std::string("the name is empty") : std::string();
            },
            ""};
}

CommandLine::CommandLine() : app_(kDescription, "qvhost") {
    app_.footer(kFooter);
    app_.require_subcommand(1);
    addShared(app_, kConfigurationOption | kPluginOptions | kSocketOption | kJsonOption);
}

// Adds shared options to the program or to one of its subcommands. Both get them, so that either
// place will do and every --help is complete.
void CommandLine::addShared(CLI::App& app, unsigned shared) {
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "qvhost " QVHOST_VERSION "\n", "Print the version and exit");
    if ((shared & kConfigurationOption) != 0) {
        app.add_option("--config-dir", options_.configDirectory,
                       "Directory of the configuration file, instead of QV_CONFIG_DIR")
            ->type_name("DIR")
            ->check(notEmpty());
    }
    if ((shared & kPluginOptions) != 0) {
        app.add_option("--plugin", options_.plugin,
                       "The plug-in's library, instead of looking for it")
            ->type_name("FILE")
            ->check(notEmpty());
        app.add_option("--log-dir", options_.logDirectory,
                       "Directory of the diagnostic log, instead of QV_LOG_DIR; made if missing")
            ->type_name("DIR")
            ->check(notEmpty());
    }
    if ((shared & kSocketOption) != 0) {
        app.add_option("--socket", options_.socket,
                       "The resident host's socket, instead of the default")
            ->type_name("PATH")
            ->check(notEmpty());
    }
    if ((shared & kJsonOption) != 0) {
        app.add_flag("--json", options_.json, "Print JSON instead of a table");
    }
}

CLI::App& CommandLine::add(const std::string& name, const std::string& description,
                           const std::string& footer, unsigned shared,
                           std::function<int()> execute) {
    CLI::App& subcommand = *app_.add_subcommand(name, description);
    addShared(subcommand, shared);
    subcommand.footer(footer);
    subcommand.final_callback([this, execute = std::move(execute)] { chosen_ = execute; });
    return subcommand;
}

// Tells what is wrong with the arguments. The library looks for missing arguments first, so it
// would report a misspelt option or subcommand as a missing subcommand.
void CommandLine::refuse(const CLI::ParseError& error) const {
    const std::vector<CLI::App*> subcommands = app_.get_subcommands();
    constexpr bool kOfSubcommandsToo = true;
    const std::vector<std::string> extras = app_.remaining(kOfSubcommandsToo);
    if (extras.empty()) {
        throw UsageError(
            subcommands.empty() && error.get_name() == "RequiredError"
                ? fmt::format("no subcommand; the subcommands are {} (see qvhost --help)",
                              fmt::join(subcommandNames(app_), ", "))
                : fmt::format("{} (see qvhost --help)", error.what()));
    }
    // The argument after a lone -- is a word, whatever it begins with.
    const std::string& word =
        extras.front() == "--" && extras.size() > 1 ? extras[1] : extras.front();
    if (word.substr(0, 1) == "-") {
        throw unknownWord("option", word,
                          optionNames(subcommands.empty() ? app_ : *subcommands.front()));
    }
    if (subcommands.empty()) {
        throw unknownWord("subcommand", word, subcommandNames(app_));
    }
    throw UsageError(fmt::format("'{}' is one argument too many (see qvhost --help)", word));
}

int CommandLine::run(int argc, char** argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        writeOutput(stdout, app_.help());
        return kSuccess;
    } catch (const CLI::CallForVersion& version) {
        writeOutput(stdout, version.what());
        return kSuccess;
    } catch (const CLI::ParseError& error) {
        refuse(error);
    }
    const CLI::App& subcommand = *app_.get_subcommands().front();
    for (const std::string& name : optionNames(app_)) {
        if (app_.count(name) > 0 && subcommand.get_option_no_throw(name) == nullptr) {
            throw UsageError(fmt::format("{} takes no {} (see qvhost {} --help)",
                                         subcommand.get_name(), name, subcommand.get_name()));
        }
    }
    return chosen_();
}

}  // namespace qv::host
