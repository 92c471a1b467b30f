// SPDX-License-Identifier: Apache-2.0

#include <QvText.h>
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/Listing.h"
#include "cli/Numbers.h"
#include "cli/Subcommands.h"
#include "cli/Times.h"
#include "server/Service.h"

namespace qv::host {

namespace {

constexpr char kGetFooter[] =
    "Prints the addresses alone, one on each line, in the order of the identifiers. If a service\n"
    "is not registered, qvhost names it on standard error, prints the others and exits with 1. A\n"
    "terminal shows control characters escaped.\n"
    "\n"
    "  my-client \"$(qvhost get 7)\"";

constexpr char kWaitFooter[] =
    "Waits until all of the services are registered at the same time, and prints their addresses\n"
    "as `qvhost get` does. Without --timeout, waits as long as that takes. If the time passes\n"
    "first, qvhost says so and exits with 1. A host that stops meanwhile only takes time, but one\n"
    "must be there at the beginning.\n"
    "\n"
    "  my-client \"$(qvhost wait 7 --timeout 60)\"";

// Prints the addresses of the services in the order of the identifiers. Names those that are
// missing on standard error. Returns the exit status.
int writeAddresses(const std::vector<int32_t>& ids, const std::vector<Service>& services) {
    std::map<int32_t, std::string> addresses;
    for (const Service& service : services) {
        addresses.emplace(service.id, isTerminal(STDOUT_FILENO) ? text::escaped(service.address)
                                                                : service.address);
    }
    int status = kSuccess;
    std::string output;
    for (const int32_t id : ids) {
        const auto address = addresses.find(id);
        if (address == addresses.end()) {
            reportError(fmt::format("service {} is not registered", id));
            status = kFailure;
        } else {
            output += address->second + '\n';
        }
    }
    writeOutput(stdout, output);
    return status;
}

int get(const std::vector<std::string>& words, const CommonOptions& options) {
    const std::vector<int32_t> ids = parseIdentifiers(words);
    return writeAddresses(ids, connectToHost(options).find(ids));
}

int wait(const std::vector<std::string>& words, const CommonOptions& options) {
    const std::vector<int32_t> ids = parseIdentifiers(words);
    const std::chrono::milliseconds timeout =
        options.timeout.empty() ? client::kNoTimeout : milliseconds(options.timeout);
    client::Client host = connectToHost(options);
    try {
        return writeAddresses(ids, host.waitFor(ids, timeout));
    } catch (const client::Error& error) {
        if (error.kind() != client::Error::Kind::TimedOut) {
            throw;
        }
        throw std::runtime_error(fmt::format(
            "{} not registered within {} seconds",
            ids.size() == 1 ? fmt::format("service {} was", ids.front())
                            : fmt::format("one of the services {} was", fmt::join(ids, ", ")),
            options.timeout));
    }
}

void addIdentifiers(Subcommand subcommand, std::vector<std::string>& words) {
    subcommand.words("ID", words, "The services' identifiers");
}

}  // namespace

void addGet(CommandLine& line) {
    const auto words = std::make_shared<std::vector<std::string>>();
    addIdentifiers(
        line.add("get", "Print the addresses of services", kGetFooter, CommandLine::kHostOptions,
                 [words, &options = line.options()] { return get(*words, options); }),
        *words);
}

void addWait(CommandLine& line) {
    const auto words = std::make_shared<std::vector<std::string>>();
    Subcommand subcommand = line.add(
        "wait", "Wait until services are registered", kWaitFooter, CommandLine::kHostOptions,
        [words, &options = line.options()] { return wait(*words, options); });
    subcommand.describe("--timeout", "How many seconds to wait; without a bound when not given");
    addIdentifiers(subcommand, *words);
}

}  // namespace qv::host
