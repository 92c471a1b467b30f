#include <chrono>
#include <memory>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/HostPaths.h"
#include "cli/Listing.h"
#include "cli/Subcommands.h"
#include "cli/UsageError.h"
#include "cli/Watch.h"
#include "server/StoredFile.h"

namespace qv::host {

namespace {

constexpr char kFooter[] =
    "Asks the resident host. With --offline, reads the configuration file instead, or its\n"
    "backup if the file is missing or damaged, and says on standard error which one it read.\n"
    "That changes no file and needs no host. The file follows a running host within about a\n"
    "second.\n"
    "\n"
    "The table shows control characters, and bytes that are not UTF-8, escaped as in \\x1b, and\n"
    "a backslash twice. On a terminal, an ellipsis ends a line that would be too long. With\n"
    "--json the directory is one array on one line. With --csv, a line feed ends each line, and\n"
    "fields are quoted by RFC 4180. In both, U+FFFD replaces bytes that are not UTF-8:\n"
    "\n"
    "  [{\"id\":1,\"address\":\"/run/a.sock\"},{\"id\":2,\"address\":\"tcp://127.0.0.1:9000\"}]\n"
    "\n"
    "With --watch, prints the directory again whenever it has changed. A terminal shows only\n"
    "the latest. If the host goes away, waits until it is back. Ctrl-C ends qvhost:\n"
    "\n"
    "  qvhost list --watch --interval 0.5";

struct ListOptions {
    bool offline = false;
    bool csv = false;
    bool watch = false;
    double interval = 2;
};

int list(const ListOptions& own, const CommonOptions& common) {
    if (own.csv && common.json) {
        throw UsageError("--csv and --json exclude each other");
    }
    const Format format = own.csv ? Format::Csv : common.json ? Format::Json : Format::Table;
    if (own.offline) {
        if (!common.socket.empty() || !common.timeout.empty() || own.watch) {
            throw UsageError(
                "--offline asks no resident host, so --socket, --timeout and --watch cannot stand "
                "with it");
        }
        const StoredFile::Contents listing =
            StoredFile(configurationFile(common.configDirectory)).read();
        reportError(listing.source);
        writeListing(listing.services, format);
        return kSuccess;
    }
    if (!common.configDirectory.empty()) {
        throw UsageError("list asks the resident host; --config-dir needs --offline");
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

void addList(CommandLine& line) {
    const auto own = std::make_shared<ListOptions>();
    CLI::App& subcommand = line.add(
        "list", "Print the directory of services", kFooter,
        CommandLine::kConfigurationOption | CommandLine::kHostOptions | CommandLine::kJsonOption,
        [own, &options = line.options()] { return list(*own, options); });
    subcommand.add_flag("--csv", own->csv, "Print CSV instead of a table");
    subcommand.add_flag("--offline", own->offline,
                        "Read the configuration file instead of asking the host");
    CLI::Option* const watch =
        subcommand.add_flag("--watch", own->watch, "Print the directory whenever it has changed");
    constexpr double kShortest = 0.01;
    constexpr double kLongest = 86400;
    subcommand
        .add_option("--interval", own->interval,
                    "How often --watch looks, 0.01 to 86400; 2 when not given")
        ->type_name("SECONDS")
        ->check(CLI::Range(kShortest, kLongest).description(""))
        ->needs(watch);
}

}  // namespace qv::host
