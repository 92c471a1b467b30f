#include <QvClient.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/PluginUse.h"
#include "cli/StoredServices.h"
#include "cli/Subcommands.h"
#include "cli/UsageError.h"
#include "server/Server.h"

namespace qv::host {

namespace {

constexpr char kFooter[] =
    "The host keeps the directory of services and lets other programs use it over its socket, in\n"
    "/run/Vornak/LorxCore or where --socket or QV_RUN_DIR has it. A directory that is missing is\n"
    "made, and so is the socket; one that a killed host left is replaced. A socket that the\n"
    "service manager passes is used instead, and left to it.\n"
    "\n"
    "The host's own user and root may connect, and whoever --allow-user and --allow-group name,\n"
    "which may be given several times. Everybody else is told that he may not. A client beyond\n"
    "--max-clients, one with a request beyond --max-message and one that is too slow are told so,\n"
    "too, and their connections are closed; the others notice nothing.\n"
    "\n"
    "It says on standard error when it serves, and tells a service manager of Type=notify.\n"
    "\n"
    "  SIGTERM, SIGINT  the requests that have arrived are answered, the plug-in is finalised;\n"
    "                   a second signal does not wait for clients that do not read, a third not\n"
    "                   for the plug-in either; --stop-timeout stands for a signal\n"
    "  SIGHUP           the plug-in is finalised and initialised again; requests wait for it\n"
    "\n"
    "  qvhost --config-dir state --log-dir log serve --socket state/host.sock\n"
    "  qvhost serve --allow-group vornak --idle-timeout 300";

// One a processor. With a single one, no two short requests are executed at once; more would wait
// for each other at the directory's lock.
constexpr unsigned kFewestThreadsByDefault = 2;
constexpr unsigned kMostThreadsByDefault = 8;

// As the options have them.
struct ServeOptions {
    unsigned threads = std::clamp(std::thread::hardware_concurrency(), kFewestThreadsByDefault,
                                  kMostThreadsByDefault);
    uint32_t maxMessage = ClientLimits().maxMessage;
    std::size_t maxClients = ClientLimits().maxClients;
    std::string idleTimeout = "0";
    std::string frameTimeout = "10";
    std::string stopTimeout = "10";
    std::vector<std::string> users;
    std::vector<std::string> groups;
};

constexpr double kLongestTime = 1e6;  // in seconds, more than a week

// Rounded up, since no time at all stands for no bound.
std::chrono::milliseconds milliseconds(const std::string& seconds) {
    return std::chrono::milliseconds(
        static_cast<int64_t>(std::ceil(std::strtod(seconds.c_str(), nullptr) * 1000)));
}

CLI::Validator isTime(double shortest) {
    return {[shortest](const std::string& value) {
                char* end = nullptr;
                const double seconds = std::strtod(value.c_str(), &end);
                const bool good = !value.empty() && *end == '\0' && seconds >= shortest &&
                                  seconds <= kLongestTime;
                return good ? std::string()
                            : fmt::format("a number of seconds from {} to {:.0f} is needed",
                                          shortest, kLongestTime);
            },
            ""};
}

ServerSettings settingsOf(const ServeOptions& options, const std::string& socket) {
    ServerSettings settings;
    settings.socket = socket.empty() ? client::defaultSocketPath() : socket;
    settings.threads = options.threads;
    settings.limits.maxMessage = options.maxMessage;
    settings.limits.maxClients = options.maxClients;
    settings.limits.idleTimeout = milliseconds(options.idleTimeout);
    settings.limits.frameTimeout = milliseconds(options.frameTimeout);
    settings.stopTimeout = milliseconds(options.stopTimeout);
    try {
        for (const std::string& user : options.users) {
            settings.access.users.push_back(userNamed(user));
        }
        for (const std::string& group : options.groups) {
            settings.access.groups.push_back(groupNamed(group));
        }
    } catch (const std::runtime_error& error) {
        throw UsageError(error.what());
    }
    return settings;
}

// Initialises the plug-in. Warns on standard error if the plug-in works without a log, or without a
// file to keep the services in. The plug-in itself tells neither.
void initializePlugin(Plugin& plugin, const CommonOptions& options) {
    plugin.initialize();
    if (!options.logDirectory.empty() && !isDirectory(options.logDirectory)) {
        reportError(fmt::format(
            "warning: --log-dir {}: the plug-in made no such directory, so no log is there",
            options.logDirectory));
    }
    const std::optional<std::string> path = plugin.configurationPath();
    const std::string problem = path ? StoredServices(*path).problem() : "";
    if (!problem.empty()) {
        reportError("warning: services are not kept: " + problem);
    }
}

int serve(const CommonOptions& common, const ServeOptions& options) {
    const ServerSettings settings = settingsOf(options, common.socket);
    setExistingDirectories(common);
    const std::unique_ptr<Plugin> plugin = loadPlugin(common);
    Server(*plugin, settings, [&] { initializePlugin(*plugin, common); }).run();
    return kSuccess;
}

}  // namespace

void addServe(CommandLine& line) {
    const auto options = std::make_shared<ServeOptions>();
    CLI::App& command =
        line.add("serve", "Run the resident host", kFooter,
                 CommandLine::kConfigurationOption | CommandLine::kPluginOptions |
                     CommandLine::kSocketOption,
                 [&common = line.options(), options] { return serve(common, *options); });
    command
        .add_option("--threads", options->threads,
                    "Threads that serve the clients; others help them while requests take long; "
                    "by default one a processor, from 2 to 8")
        ->type_name("N")
        ->check(CLI::Range(1, 1024));
    command.add_option("--max-message", options->maxMessage, "Longest request in bytes")
        ->type_name("BYTES")
        ->check(CLI::Range(uint32_t{0}, uint32_t{std::numeric_limits<int>::max()}))
        ->capture_default_str();
    command.add_option("--max-clients", options->maxClients, "Clients connected at once")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000))
        ->capture_default_str();
    command
        .add_option("--idle-timeout", options->idleTimeout,
                    "How many seconds a client may send nothing; 0 is for ever")
        ->type_name("SECONDS")
        ->check(isTime(0))
        ->capture_default_str();
    command
        .add_option(
            "--frame-timeout", options->frameTimeout,
            "How many seconds a request, or the reading of an answer, may take; 0 is for ever")
        ->type_name("SECONDS")
        ->check(isTime(0))
        ->capture_default_str();
    command
        .add_option("--stop-timeout", options->stopTimeout,
                    "How many seconds the end waits for clients, then for the plug-in")
        ->type_name("SECONDS")
        ->check(isTime(0.001))
        ->capture_default_str();
    command.add_option("--allow-user", options->users, "A user who may connect")
        ->type_name("NAME|UID")
        ->check(notEmpty())
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_option("--allow-group", options->groups, "A group whose members may connect")
        ->type_name("NAME|GID")
        ->check(notEmpty())
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

}  // namespace qv::host
