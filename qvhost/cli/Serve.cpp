// SPDX-License-Identifier: Apache-2.0

#include <QvClient.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
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
#include "cli/OptionValues.h"
#include "cli/PluginUse.h"
#include "cli/Subcommands.h"
#include "cli/Times.h"
#include "cli/UsageError.h"
#include "server/PluginError.h"
#include "server/Server.h"

namespace qv::host {

namespace {

constexpr char kServeFooter[] =
    "The host keeps the directory of services and lets other programs use it over its socket.\n"
    "A change that it acknowledges is in its record on the disk, beside the configuration. The\n"
    "plug-in's file follows within about a second.\n"
    "\n"
    "The socket is in /run/Vornak/LorxCore, or where --socket or QV_RUN_DIR says. The host\n"
    "makes the socket, and its directory if that is missing, and replaces a socket that a\n"
    "killed host left. If the service manager passes a socket, the host uses that one and does\n"
    "not remove it.\n"
    "\n"
    "Root and the host's own user may connect, and those whom --allow-user and --allow-group\n"
    "name. Both options may be given several times. The host refuses all other users. It also\n"
    "tells a client beyond --max-clients, a client whose request exceeds --max-message and a\n"
    "client that is too slow, and closes their connections. Other clients notice nothing. While\n"
    "all clients together have --max-memory, the host reads no long request. A user other than\n"
    "root and the host's own may have a quarter of the clients and of the memory.\n"
    "\n"
    "The host says on standard error when it serves, and tells a service manager of\n"
    "Type=notify.\n"
    "\n"
    "  SIGTERM, SIGINT  Answers the requests that have arrived and finalises the plug-in. After a\n"
    "                   second signal, does not wait for clients that do not read. After a third,\n"
    "                   does not wait for the plug-in. Each --stop-timeout counts as a signal.\n"
    "  SIGHUP           Finalises the plug-in and initialises it again. Answers requests "
    "meanwhile.\n"
    "\n"
    "  qvhost --config-dir state --log-dir log serve --socket state/host.sock\n"
    "  qvhost serve --allow-group vornak --idle-timeout 300";

// Returns one thread for each processor. With more than one, a long listing for one client does not
// delay all others.
unsigned defaultThreads() {
    constexpr unsigned kFewest = 2;
    constexpr unsigned kMost = 8;
    return std::clamp(std::thread::hardware_concurrency(), kFewest, kMost);
}

// The options as the command line has them.
struct ServeOptions {
    std::string threads;  // empty if it is not given
    std::size_t maxMessage = ClientLimits().maxMessage;
    std::size_t maxClients = ClientLimits().maxClients;
    std::size_t maxMemory = ClientLimits().maxMemory;
    std::string idleTimeout = "0";
    std::string frameTimeout = "10";
    std::string stopTimeout = "10";
    std::vector<std::string> users;
    std::vector<std::string> groups;
};

ServerSettings settingsOf(const ServeOptions& options, const std::string& socket) {
    ServerSettings settings;
    settings.socket = socket.empty() ? client::defaultSocketPath() : socket;
    settings.threads = options.threads.empty() ? defaultThreads()
                                               : static_cast<unsigned>(std::stoul(options.threads));
    settings.limits.maxMessage = static_cast<uint32_t>(options.maxMessage);
    settings.limits.maxClients = options.maxClients;
    settings.limits.maxMemory = options.maxMemory;
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

// Initialises the plug-in. Warns on standard error if the plug-in works without a log, because the
// plug-in itself does not tell.
void initializePlugin(Plugin& plugin, const CommonOptions& options) {
    plugin.initialize();
    if (!options.logDirectory.empty() && !isDirectory(options.logDirectory)) {
        writeJournal(fmt::format(
            "warning: --log-dir {}: the plug-in made no such directory, so no log is there",
            options.logDirectory));
    }
}

int serve(const CommonOptions& common, const ServeOptions& options) {
    ServerSettings settings = settingsOf(options, common.socket);
    setExistingDirectories(common);
    const std::unique_ptr<Plugin> plugin = loadPlugin(common);
    const std::optional<std::string> configuration = plugin->configurationPath();
    if (!configuration || configuration->empty()) {
        throw PluginError("the plug-in does not tell where its configuration is");
    }
    settings.configuration = *configuration;
    settings.version = QVHOST_VERSION;
    Server(*plugin, settings, [&] { initializePlugin(*plugin, common); }).run();
    return kSuccess;
}

}  // namespace

void addServe(CommandLine& line) {
    const auto options = std::make_shared<ServeOptions>();
    Subcommand subcommand =
        line.add("serve", "Run the resident host", kServeFooter,
                 CommandLine::kConfigurationOption | CommandLine::kPluginOptions |
                     CommandLine::kSocketOption,
                 [&common = line.options(), options] { return serve(common, *options); });
    subcommand.option("--threads", "N", options->threads,
                      "Threads that serve the clients; by default one for each processor, 2 to 8",
                      isWholeNumber(1, 1024));
    subcommand.option("--max-message", "BYTES", options->maxMessage, "Longest request in bytes",
                      isWholeNumber(0, std::numeric_limits<int>::max()));
    subcommand.option("--max-clients", "N", options->maxClients, "Clients connected at once",
                      isWholeNumber(1, 1'000'000));
    constexpr std::size_t kLeastMemory = std::size_t{1} << 20;
    subcommand.option("--max-memory", "BYTES", options->maxMemory,
                      "Bytes of the requests and answers of all clients together",
                      isWholeNumber(kLeastMemory, std::numeric_limits<std::size_t>::max() / 2));
    subcommand.option("--idle-timeout", "SECONDS", options->idleTimeout,
                      "How many seconds a client may send nothing; 0 means no limit", isTime(0));
    subcommand.option(
        "--frame-timeout", "SECONDS", options->frameTimeout,
        "How many seconds a client may take to send a request or to read its answers; 0 means no "
        "limit",
        isTime(0));
    subcommand.option(
        "--stop-timeout", "SECONDS", options->stopTimeout,
        "How many seconds the host waits for clients when it stops, and then for the plug-in",
        isTime(0.001));
    subcommand.option("--allow-user", "NAME|UID", options->users, "A user who may connect",
                      notEmpty());
    subcommand.option("--allow-group", "NAME|GID", options->groups,
                      "A group whose members may connect", notEmpty());
}

}  // namespace qv::host
