// SPDX-License-Identifier: Apache-2.0

#include <fnmatch.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/HostPaths.h"
#include "cli/Listing.h"
#include "cli/OptionValues.h"
#include "cli/Subcommands.h"
#include "cli/UsageError.h"
#include "server/StoredFile.h"

namespace qv::host {

namespace {

constexpr char kListFooter[] =
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
    "With --match, prints only the services whose address as a whole fits the pattern. As in a\n"
    "shell, * stands for any characters, ? for one, and [...] for one of those in brackets. They\n"
    "stand for a slash and for a leading dot as well:\n"
    "\n"
    "  qvhost list --match 'tcp://*'\n"
    "\n"
    "`qvhost watch` prints each change.";

struct ListOptions {
    bool offline = false;
    bool csv = false;
    std::string match;
};

// Returns the services whose address fits the pattern, or all if there is none.
std::vector<Service> fitting(std::vector<Service> services, const std::string& pattern) {
    if (!pattern.empty()) {
        services.erase(std::remove_if(services.begin(), services.end(),
                                      [&](const Service& service) {
                                          return fnmatch(pattern.c_str(), service.address.c_str(),
                                                         0) != 0;
                                      }),
                       services.end());
    }
    return services;
}

int list(const ListOptions& own, const CommonOptions& common) {
    if (own.csv && common.json) {
        throw UsageError("--csv and --json exclude each other");
    }
    const Format format = own.csv ? Format::Csv : common.json ? Format::Json : Format::Table;
    if (own.offline) {
        if (!common.socket.empty() || !common.timeout.empty()) {
            throw UsageError(
                "--offline asks no resident host, so --socket and --timeout cannot stand with it");
        }
        const StoredFile::Contents listing =
            StoredFile(configurationFile(common.configDirectory)).read();
        reportError(listing.source);
        writeListing(fitting(listing.services, own.match), format);
        return kSuccess;
    }
    if (!common.configDirectory.empty()) {
        throw UsageError("list asks the resident host; --config-dir needs --offline");
    }
    writeListing(fitting(connectToHost(common).services(), own.match), format);
    return kSuccess;
}

}  // namespace

void addList(CommandLine& line) {
    const auto own = std::make_shared<ListOptions>();
    Subcommand subcommand = line.add(
        "list", "Print the directory of services", kListFooter,
        CommandLine::kConfigurationOption | CommandLine::kHostOptions | CommandLine::kJsonOption,
        [own, &options = line.options()] { return list(*own, options); });
    subcommand.flag("--csv", own->csv, "Print CSV instead of a table");
    subcommand.flag("--offline", own->offline,
                    "Read the configuration file instead of asking the host");
    subcommand.option("--match", "GLOB", own->match,
                      "Print only services whose address fits the pattern", notEmpty());
}

}  // namespace qv::host
