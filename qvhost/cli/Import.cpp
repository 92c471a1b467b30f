// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>

#include <cstddef>
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/OptionValues.h"
#include "cli/Progress.h"
#include "cli/ServiceFile.h"
#include "cli/Signals.h"
#include "cli/Subcommands.h"
#include "cli/TextFormat.h"

namespace qv::host {

namespace {

constexpr char kImportFooter[] =
    "The formats are those of `qvhost export` and of list --json and --csv: a JSON array of\n"
    "objects with id and address, or CSV by RFC 4180 whose first line is id,address. A text\n"
    "that begins with a bracket is JSON.\n"
    "\n"
    "The file is checked first. If anything is wrong, such as an identifier that occurs twice\n"
    "or an address that is not UTF-8, qvhost names each place and registers nothing. A\n"
    "service that is registered already gets the new address. Services that the file does not\n"
    "name stay. If the host cannot write to its disk, qvhost says how many services are\n"
    "registered but not kept, and exits with 1. After Ctrl-C, qvhost waits for the answer to the\n"
    "services that it has sent, up to 1000, and says how many are registered. The same import\n"
    "may run again.\n"
    "\n"
    "  qvhost import services.csv\n"
    "  qvhost import - < services.json";

// Each request is one commit of the host, and the host bounds its length.
constexpr std::size_t kMostServices = 1000;
constexpr std::size_t kMostBytes = std::size_t{1} << 20;

// Returns how many services, from `first` on, go into one request.
std::size_t batchSize(const std::vector<Service>& services, std::size_t first) {
    std::size_t count = 0;
    std::size_t bytes = 0;
    while (first + count < services.size() && count < kMostServices) {
        bytes += services[first + count].address.size();
        if (count > 0 && bytes > kMostBytes) {
            break;
        }
        ++count;
    }
    return count;
}

// How far an import has come.
struct Imported {
    std::size_t total = 0;
    std::size_t done = 0;
    std::size_t notKept = 0;  // of those that are done
    std::string reason;       // why they are not kept
};

// Says how many services are registered, for a message about an import that ends early.
std::string extent(const Imported& imported) {
    return fmt::format("{} of {} are registered{}", imported.done, imported.total,
                       imported.notKept == 0 ? ""
                                             : fmt::format(", {} of them are not kept: {}",
                                                           imported.notKept, imported.reason));
}

// Registers the services, until the interruption.
Imported registerAll(std::vector<Service> services, client::Client& host,
                     const Interruption& interruption) {
    Progress progress(services.size());
    Imported imported;
    imported.total = services.size();
    while (imported.done < imported.total && interruption.signal() == 0) {
        const std::size_t count = batchSize(services, imported.done);
        const auto first = services.begin() + static_cast<std::ptrdiff_t>(imported.done);
        const auto last = first + static_cast<std::ptrdiff_t>(count);
        try {
            client::ChangeResult result = host.registerServices(
                {std::make_move_iterator(first), std::make_move_iterator(last)});
            if (!result.isKept) {
                imported.notKept += count;
                imported.reason = std::move(result.reason);
            }
        } catch (const client::Error& error) {
            throw client::Error(error.kind(), error.code(),
                                fmt::format("{}; {}", error.what(), extent(imported)));
        }
        imported.done += count;
        if (imported.total > kMostServices) {
            progress.show(imported.done);
        }
    }
    return imported;
}

int importServices(const std::string& path, const std::string& format,
                   const CommonOptions& options) {
    const bool isStandardInput = path == "-";
    ReadServices read =
        readServices(isStandardInput ? readWholeStandardInput() : readWholeFile(path),
                     isStandardInput ? "<stdin>" : path, formatNamed(format));
    for (const std::string& problem : read.problems) {
        reportError(problem);
    }
    if (!read.problems.empty()) {
        return kWrongUse;
    }
    client::Client host = connectToHost(options);
    const Interruption interruption;
    const Imported imported = registerAll(std::move(read.services), host, interruption);
    if (interruption.signal() != 0) {
        reportError("interrupted; " + extent(imported));
        endBySignal(interruption.signal());
    }
    writeOutput(stdout, fmt::format("registered {} service{}\n", imported.total,
                                    imported.total == 1 ? "" : "s"));
    return reportChange(
        {imported.notKept == 0, imported.reason},
        fmt::format("{} of {} services are registered, but a restart of the host may lose them",
                    imported.notKept, imported.total));
}

}  // namespace

void addImport(CommandLine& line) {
    const auto path = std::make_shared<std::string>();
    const auto format = std::make_shared<std::string>();
    Subcommand subcommand =
        line.add("import", "Register the services of a file", kImportFooter,
                 CommandLine::kHostOptions, [path, format, &options = line.options()] {
                     return importServices(*path, *format, options);
                 });
    subcommand.word("FILE", *path, "The file, or - for standard input", Subcommand::Need::Required,
                    notEmpty());
    addFormatOption(subcommand, *format, "the beginning of the text tells");
}

}  // namespace qv::host
