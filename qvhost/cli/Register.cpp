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
    "address replaces the old one. An identifier is a signed 32-bit number, decimal or from 0x0\n"
    "to 0x7fffffff. If an address begins with a -, put -- before the first identifier.\n"
    "\n"
    "  qvhost register 1 /run/a.sock\n"
    "  qvhost register 1 /run/a.sock 2 tcp://127.0.0.1:9000";

constexpr char kUnregisterFooter[] =
    "Ignores identifiers that are not registered. The file keeps a removed service until the next\n"
    "registration that changes something.\n"
    "\n"
    "  qvhost unregister 1 2";

int registerServices(const std::vector<std::string>& words, const CommonOptions& options) {
    if (words.size() % 2 != 0) {
        throw UsageError(
            "register needs an address after each identifier (see qvhost register "
            "--help)");
    }
    std::vector<Service> services;
    services.reserve(words.size() / 2);
    for (std::size_t i = 0; i < words.size(); i += 2) {
        const int32_t id = parseIdentifier(words[i]);
        if (const char* const problem = problemOfAddress(words[i + 1])) {
            throw UsageError(fmt::format("the address of {} {}", id, problem));
        }
        services.push_back({id, words[i + 1]});
    }
    connectToHost(options).registerServices(services);
    return kSuccess;
}

int unregisterServices(const std::vector<std::string>& words, const CommonOptions& options) {
    std::vector<int32_t> ids;
    ids.reserve(words.size());
    for (const std::string& word : words) {
        ids.push_back(parseIdentifier(word));
    }
    connectToHost(options).unregisterServices(ids);
    return kSuccess;
}

}  // namespace

void addRegister(CommandLine& line) {
    const auto words = std::make_shared<std::vector<std::string>>();
    line.add("register", "Bind addresses to identifiers", kRegisterFooter,
             CommandLine::kSocketOption,
             [words, &options = line.options()] { return registerServices(*words, options); })
        .add_option("ID-ADDRESS", *words, "Identifiers, each followed by its address")
        ->type_name("")
        ->required();
}

void addUnregister(CommandLine& line) {
    const auto words = std::make_shared<std::vector<std::string>>();
    line.add("unregister", "Remove services", kUnregisterFooter, CommandLine::kSocketOption,
             [words, &options = line.options()] { return unregisterServices(*words, options); })
        .add_option("ID", *words, "The services' identifiers")
        ->type_name("")
        ->required();
}

}  // namespace qv::host
