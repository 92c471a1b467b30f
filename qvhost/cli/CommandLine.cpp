// SPDX-License-Identifier: Apache-2.0

#include "cli/CommandLine.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/OptionValues.h"
#include "cli/Quotation.h"
#include "cli/Suggestion.h"
#include "cli/Times.h"
#include "cli/UsageError.h"

namespace qv::host {

namespace {

constexpr char kDescription[] =
    "Runs the naming service as a resident host, or talks to the resident host.\n";

constexpr char kCommandLineFooter[] =
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

// The library splits an argument in brackets, and reads an argument that begins with - as an option
// even after a lone --, once it has as many words as it needs. It leaves an argument alone that
// begins with this character, which no argument of a process holds.
constexpr char kLiteral = '\0';

// Returns the arguments in the library's order, which is from the last to the first. Marks those
// that the library would not leave alone, and leaves the first lone -- out.
std::vector<std::string> libraryArguments(int argc, char** argv) {
    std::vector<std::string> arguments;
    bool isAfterMark = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (!isAfterMark && argument == "--") {
            isAfterMark = true;
        } else if (isAfterMark || argument.substr(0, 1) == "[" || argument == "++") {
            arguments.push_back(kLiteral + std::string(argument));
        } else {
            arguments.emplace_back(argument);
        }
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

bool isLiteral(const std::string& word) {
    return !word.empty() && word.front() == kLiteral;
}

std::string withoutMark(const std::string& word) {
    return isLiteral(word) ? word.substr(1) : word;
}

// Makes the options of a subcommand, and its words, take arguments without their mark.
void removeMarks(CLI::App& app) {
    for (CLI::Option* const option : app.get_options()) {
        if (option->get_items_expected_max() > 0) {
            option->transform(withoutMark, "");
        }
    }
}

std::string hint(const CLI::App* subcommand) {
    return subcommand == nullptr ? "see qvhost --help"
                                 : fmt::format("see qvhost {} --help", subcommand->get_name());
}

// Returns the words that a subcommand needs and did not get.
std::vector<std::string> missingWords(const CLI::App& subcommand) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : subcommand.get_options()) {
        if (option->get_required() && option->count() == 0) {
            names.push_back(option->get_name());
        }
    }
    return names;
}

// Tells a mistake that the library found, in the words of this program. The library names an option
// before a colon. If a validator refused a value, the validator's text follows.
std::string problemOf(const CLI::ParseError& error, const CLI::App& app) {
    std::string text = error.what();
    const std::string option = text.substr(0, text.find(':'));
    if (error.get_name() == "RequiredError") {
        return fmt::format("{} needs {}", app.get_name(), fmt::join(missingWords(app), " and "));
    }
    if (error.get_name() == "ArgumentMismatch") {
        return option + (app.count(option) > 1 ? " is given more than once" : " needs a value");
    }
    if (error.get_name() == "ConversionError") {
        // Only a flag comes here, because each value has a validator.
        const std::size_t begin = text.find("--");
        return text.substr(begin, text.find(' ', begin) - begin) + " takes no value";
    }
    return text;
}

// Tells what is wrong with the arguments. The library looks for missing arguments first, so it
// would report a misspelt option or subcommand as a missing subcommand.
[[noreturn]] void refuse(const CLI::ParseError& error, const CLI::App& program) {
    const std::vector<CLI::App*> subcommands = program.get_subcommands();
    const CLI::App* const subcommand = subcommands.empty() ? nullptr : subcommands.front();
    const CLI::App& app = subcommand == nullptr ? program : *subcommand;
    constexpr bool kOfSubcommandsToo = true;
    const std::vector<std::string> extras = program.remaining(kOfSubcommandsToo);
    std::string problem;
    if (extras.empty()) {
        problem = subcommand == nullptr && error.get_name() == "RequiredError"
                      ? fmt::format("no subcommand; the subcommands are {}",
                                    fmt::join(subcommandNames(program), ", "))
                      : problemOf(error, app);
    } else {
        const std::string word = withoutMark(extras.front());
        const bool isOption = !isLiteral(extras.front()) && word.substr(0, 1) == "-";
        if (!isOption && subcommand != nullptr) {
            problem = fmt::format("{} is one argument too many", quotation(word));
        } else {
            const std::vector<std::string> known =
                isOption ? optionNames(app) : subcommandNames(program);
            const std::string_view closest = closestWord(word, {known.begin(), known.end()});
            problem =
                fmt::format("unknown {} {}", isOption ? "option" : "subcommand", quotation(word));
            if (!closest.empty() && closest != word) {
                throw UsageError(fmt::format("{} (did you mean '{}'?)", problem, closest));
            }
        }
    }
    throw UsageError(fmt::format("{} ({})", problem, hint(subcommand)));
}

}  // namespace

CommandLine::CommandLine() : app_(std::make_unique<CLI::App>(kDescription, "qvhost")) {
    app_->footer(kCommandLineFooter);
    app_->require_subcommand(1);
    addShared(*app_, kConfigurationOption | kPluginOptions | kHostOptions | kJsonOption);
}

CommandLine::~CommandLine() = default;

// Adds shared options to the program or to one of its subcommands. Both get them, so that either
// place will do and every --help is complete.
void CommandLine::addShared(CLI::App& app, unsigned shared) {
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "qvhost " QVHOST_VERSION "\n", "Print the version and exit");
    Subcommand subcommand(app);
    if ((shared & kConfigurationOption) != 0) {
        subcommand.option("--config-dir", "DIR", options_.configDirectory,
                          "Directory of the configuration file, instead of QV_CONFIG_DIR",
                          notEmpty());
    }
    if ((shared & kPluginOptions) != 0) {
        subcommand.option("--plugin", "FILE", options_.plugin,
                          "The plug-in's library, instead of looking for it", notEmpty());
        subcommand.option("--log-dir", "DIR", options_.logDirectory,
                          "Directory of the diagnostic log, instead of QV_LOG_DIR; made if missing",
                          notEmpty());
    }
    if ((shared & kSocketOption) != 0) {
        subcommand.option("--socket", "PATH", options_.socket,
                          "The resident host's socket, instead of the default", notEmpty());
    }
    if ((shared & kTimeoutOption) != 0) {
        constexpr double kShortest = 0.001;
        subcommand.option("--timeout", "SECONDS", options_.timeout,
                          "How many seconds the host may take to answer; 30 when not given",
                          isTime(kShortest));
    }
    if ((shared & kJsonOption) != 0) {
        subcommand.flag("--json", options_.json, "Print JSON instead of a table");
    }
}

Subcommand CommandLine::add(const std::string& name, const std::string& description,
                            const std::string& footer, unsigned shared,
                            std::function<int()> execute) {
    CLI::App& subcommand = *app_->add_subcommand(name, description);
    addShared(subcommand, shared);
    subcommand.footer(footer);
    subcommand.final_callback([this, execute = std::move(execute)] { chosen_ = execute; });
    return Subcommand(subcommand);
}

int CommandLine::run(int argc, char** argv) {
    removeMarks(*app_);
    for (CLI::App* const subcommand : app_->get_subcommands(nullptr)) {
        removeMarks(*subcommand);
    }
    try {
        app_->parse(libraryArguments(argc, argv));
    } catch (const CLI::CallForHelp&) {
        writeOutput(stdout, app_->help());
        return kSuccess;
    } catch (const CLI::CallForVersion& version) {
        writeOutput(stdout, version.what());
        return kSuccess;
    } catch (const CLI::ParseError& error) {
        refuse(error, *app_);
    }
    const CLI::App& subcommand = *app_->get_subcommands().front();
    for (const std::string& name : optionNames(*app_)) {
        if (app_->count(name) > 0 && subcommand.get_option_no_throw(name) == nullptr) {
            throw UsageError(fmt::format("{} takes no {} (see qvhost {} --help)",
                                         subcommand.get_name(), name, subcommand.get_name()));
        }
    }
    return chosen_();
}

}  // namespace qv::host
