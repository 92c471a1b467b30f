#include <chrono>
#include <memory>

#include "Commands.h"
#include "ExitStatus.h"
#include "HostConnection.h"
#include "Listing.h"
#include "PluginUse.h"
#include "UsageError.h"
#include "Watch.h"

namespace qv::host {

namespace {

constexpr char kFooter[] =
    "Asks the resident host. With --offline the plug-in is loaded for it instead, which needs no\n"
    "host, and must not be done beside one that uses the same configuration.\n"
    "\n"
    "The table shows control characters, and bytes that are not UTF-8, escaped as in \\x1b, and a\n"
    "backslash twice. With --json the directory is one array on one line, with --csv lines as RFC\n"
    "4180 has them; in both U+FFFD replaces bytes that are not UTF-8:\n"
    "\n"
    "  [{\"id\":1,\"address\":\"/run/a.sock\"},{\"id\":2,\"address\":\"tcp://127.0.0.1:9000\"}]\n"
    "\n"
    "With --watch the directory is printed again whenever it has changed, and a terminal shows\n"
    "the latest alone. A host that goes away is waited for. Ctrl-C ends it:\n"
    "\n"
    "  qvhost list --watch --interval 0.5";

struct ListOptions {
    bool offline = false;
    bool csv = false;
    bool watch = false;
    double interval = 2;
};

int listOffline(const CommonOptions& common, Format format) {
    setExistingDirectories(common);
    const std::unique_ptr<Plugin> plugin = loadPlugin(common);
    initializePlugin(*plugin, common);
    writeListing(plugin->services(), format);
    plugin->finalize();
    return kSuccess;
}

int list(const ListOptions& own, const CommonOptions& common) {
    if (own.csv && common.json) {
        throw UsageError("--csv and --json exclude each other");
    }
    const Format format = own.csv ? Format::Csv : common.json ? Format::Json : Format::Table;
    if (own.offline) {
        if (!common.socket.empty() || own.watch) {
            throw UsageError(
                "--offline asks no resident host, so there is no --socket and no "
                "--watch with it");
        }
        return listOffline(common, format);
    }
    if (!common.plugin.empty() || !common.configDirectory.empty() || !common.logDirectory.empty()) {
        throw UsageError(
            "list asks the resident host, whose --plugin, --config-dir and --log-dir "
            "are its own; list --offline loads the plug-in itself");
    }
    if (own.watch) {
        watchServices(common, format,
                      std::chrono::milliseconds(static_cast<int>(own.interval * 1000)));
    } else {
        writeListing(connectToHost(common).services(), format);
    }
    return kSuccess;
}

}  // namespace

void addListCommand(CommandLine& line) {
    const auto own = std::make_shared<ListOptions>();
    CLI::App& command = line.add(
        "list", "Print the directory of services", kFooter,
        CommandLine::kPluginOptions | CommandLine::kSocketOption | CommandLine::kJsonOption,
        [own, &options = line.options()] { return list(*own, options); });
    command.add_flag("--csv", own->csv, "Print CSV instead of a table");
    command.add_flag("--offline", own->offline, "Load the plug-in instead of asking the host");
    CLI::Option* const watch =
        command.add_flag("--watch", own->watch, "Print the directory whenever it has changed");
    constexpr double kShortest = 0.01;
    constexpr double kLongest = 86400;
    command
        .add_option("--interval", own->interval,
                    "How often --watch looks, 0.01 to 86400; 2 when not given")
        ->type_name("SECONDS")
        ->check(CLI::Range(kShortest, kLongest).description(""))
        ->needs(watch);
}

}  // namespace qv::host
