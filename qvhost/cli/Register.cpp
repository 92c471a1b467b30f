// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ServiceAddress.h"
#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/Numbers.h"
#include "cli/Output.h"
#include "cli/Subcommands.h"
#include "cli/UsageError.h"
#include "server/Service.h"

namespace qv::host {

namespace {

constexpr char kRegisterFooter[] =
    "Registers all services with one request. If an identifier is registered already, the new\n"
    "address replaces the old one. An identifier may occur only once in a call. An identifier is a "
    "signed 32-bit number, decimal or from 0x0\n"
    "to 0x7fffffff. If an address begins with a -, put -- before it. An address is UTF-8 of 1 to\n"
    "4096 bytes without a zero byte, and without a byte order mark at its beginning.\n"
    "\n"
    "On success, the services are on the host's disk and outlive a power failure. If the host\n"
    "cannot write to its disk, qvhost says that the services are registered but not kept, and\n"
    "exits with 1. The plug-in's file follows within about a second; --sync waits for it.\n"
    "\n"
    "  qvhost register 1 /run/a.sock\n"
    "  qvhost register 1 /run/a.sock 2 tcp://127.0.0.1:9000";

constexpr char kUnregisterFooter[] =
    "Ignores identifiers that are not registered. On success, the removal is on the host's disk\n"
    "and outlives a power failure. If the host cannot write to its disk, qvhost says that the\n"
    "removal is not kept, and exits with 1.\n"
    "\n"
    "  qvhost unregister 1 2";

int registerServices(const std::vector<std::string>& words, bool sync,
                     const CommonOptions& options) {
    if (words.size() % 2 != 0) {
        throw UsageError(
            "register needs an address after each identifier (see qvhost register "
            "--help)");
    }
    std::vector<std::string> identifiers;
    for (std::size_t i = 0; i < words.size(); i += 2) {
        identifiers.push_back(words[i]);
    }
    std::vector<Service> services;
    for (const int32_t id : parseIdentifiers(identifiers)) {
        const std::string& address = words[2 * services.size() + 1];
        if (const char* const problem = problemOfAddress(address)) {
            throw UsageError(fmt::format("the address of {} {}", id, problem));
        }
        services.push_back({id, address});
    }
    client::Client host = connectToHost(options);
    const int status =
        reportChange(host.registerServices(services),
                     "the services are registered, but a restart of the host may lose them");
    if (sync) {
        host.sync();
    }
    return status;
}

int unregisterServices(const std::vector<std::string>& words, const CommonOptions& options) {
    const std::vector<int32_t> ids = parseIdentifiers(words);
    return reportChange(connectToHost(options).unregisterServices(ids),
                        "the services are removed, but a restart of the host may bring them back");
}

}  // namespace

void addRegister(CommandLine& line) {
    const auto words = std::make_shared<std::vector<std::string>>();
    const auto sync = std::make_shared<bool>(false);
    Subcommand subcommand =
        line.add("register", "Bind addresses to identifiers", kRegisterFooter,
                 CommandLine::kHostOptions, [words, sync, &options = line.options()] {
                     return registerServices(*words, *sync, options);
                 });
    subcommand.words("ID-ADDRESS", *words, "Identifiers, each followed by its address");
    subcommand.flag("--sync", *sync, "Wait until the plug-in's file holds the services");
}

void addUnregister(CommandLine& line) {
    const auto words = std::make_shared<std::vector<std::string>>();
    line.add("unregister", "Remove services", kUnregisterFooter, CommandLine::kHostOptions,
             [words, &options = line.options()] { return unregisterServices(*words, options); })
        .words("ID", *words, "The services' identifiers");
}

}  // namespace qv::host
