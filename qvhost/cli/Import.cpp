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
#include "cli/Subcommands.h"
#include "cli/TextFormat.h"

namespace qv::host {

namespace {

constexpr char kFooter[] =
    "The formats are those of `qvhost export` and of list --json and --csv: a JSON array of\n"
    "objects with id and address, or CSV by RFC 4180 whose first line is id,address. A text\n"
    "that begins with a bracket is JSON.\n"
    "\n"
    "The file is checked first. If anything is wrong, such as an identifier that occurs twice\n"
    "or an address that is not UTF-8, qvhost names each place and registers nothing. A\n"
    "service that is registered already gets the new address. Services that the file does not\n"
    "name stay. If the host cannot write to its disk, qvhost says how many services are\n"
    "registered but not kept, and exits with 1.\n"
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

// The services that are registered although the host cannot keep them.
struct NotKept {
    std::size_t count = 0;
    std::string reason;
};

NotKept registerAll(std::vector<Service> services, client::Client& host) {
    Progress progress(services.size());
    NotKept notKept;
    std::size_t done = 0;
    while (done < services.size()) {
        const std::size_t count = batchSize(services, done);
        const auto first = services.begin() + static_cast<std::ptrdiff_t>(done);
        const auto last = first + static_cast<std::ptrdiff_t>(count);
        try {
            client::ChangeResult result = host.registerServices(
                {std::make_move_iterator(first), std::make_move_iterator(last)});
            if (!result.isKept) {
                notKept.count += count;
                notKept.reason = std::move(result.reason);
            }
        } catch (const client::Error& error) {
            throw client::Error(
                error.kind(), error.code(),
                fmt::format("{}; {} of {} are registered{}", error.what(), done, services.size(),
                            notKept.count == 0 ? ""
                                               : fmt::format(", {} of them are not kept: {}",
                                                             notKept.count, notKept.reason)));
        }
        done += count;
        if (services.size() > kMostServices) {
            progress.show(done);
        }
    }
    return notKept;
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
    const std::size_t count = read.services.size();
    const NotKept notKept = registerAll(std::move(read.services), host);
    writeOutput(stdout, fmt::format("registered {} service{}\n", count, count == 1 ? "" : "s"));
    return reportChange(
        {notKept.count == 0, notKept.reason},
        fmt::format("{} of {} services are registered, but a restart of the host may lose them",
                    notKept.count, count));
}

}  // namespace

void addImport(CommandLine& line) {
    const auto path = std::make_shared<std::string>();
    const auto format = std::make_shared<std::string>();
    CLI::App& subcommand =
        line.add("import", "Register the services of a file", kFooter, CommandLine::kSocketOption,
                 [path, format, &options = line.options()] {
                     return importServices(*path, *format, options);
                 });
    subcommand.add_option("FILE", *path, "The file, or - for standard input")
        ->type_name("")
        ->required()
        ->check(notEmpty());
    addFormatOption(subcommand, *format, "the beginning of the text tells");
}

}  // namespace qv::host
