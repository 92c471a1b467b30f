#include <QvSystem/Utf8.h>
#include <fmt/format.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/Listing.h"
#include "cli/NewFile.h"
#include "cli/Subcommands.h"
#include "cli/TextFormat.h"

namespace qv::host {

namespace {

constexpr char kFooter[] =
    "What `qvhost import` reads: lines as RFC 4180 has them, of which the first is id,address, or\n"
    "an array of objects with id and address. A file is there whole or not at all, with the mode\n"
    "0600; one that is there already is left as it is, and is a failure.\n"
    "\n"
    "Addresses are any bytes, and these formats hold UTF-8 alone. When there is an address that "
    "is\n"
    "not, nothing is written, and its service is named; with --replace, U+FFFD takes the place of\n"
    "what is not UTF-8.\n"
    "\n"
    "  qvhost export services.csv\n"
    "  qvhost export --format json | ssh other qvhost import -";

struct ExportOptions {
    std::string path;
    std::string format;
    bool replace = false;
};

void refuseWhatWouldChange(const std::vector<Service>& services) {
    constexpr std::size_t kMostNamed = 10;
    std::vector<std::string> named;
    std::size_t count = 0;
    for (const Service& service : services) {
        if (system::isUtf8(service.address)) {
            continue;
        }
        ++count;
        if (named.size() < kMostNamed) {
            named.push_back(std::to_string(service.id));
        }
    }
    if (count > 0) {
        throw std::runtime_error(fmt::format(
            "nothing exported: not UTF-8 {} of {}{} (--replace replaces what is not)",
            count == 1 ? "is the address" : "are the addresses", fmt::join(named, ", "),
            count > named.size() ? fmt::format(" and {} more", count - named.size()) : ""));
    }
}

int exportServices(const ExportOptions& own, const CommonOptions& options) {
    const bool isJsonFile = std::filesystem::path(own.path).extension() == ".json";
    const Format format = formatNamed(own.format).value_or(isJsonFile ? Format::Json : Format::Csv);
    const std::vector<Service> services = connectToHost(options).services();
    if (!own.replace) {
        refuseWhatWouldChange(services);
    }
    if (own.path.empty() || own.path == "-") {
        writeListing(services, format);
    } else {
        makeNewFile(own.path, formatServices(services, format));
    }
    return kSuccess;
}

}  // namespace

void addExport(CommandLine& line) {
    const auto own = std::make_shared<ExportOptions>();
    CLI::App& command = line.add(
        "export", "Write the directory of services to a file", kFooter, CommandLine::kSocketOption,
        [own, &options = line.options()] { return exportServices(*own, options); });
    command.add_option("FILE", own->path, "The file; standard output when absent or -")
        ->type_name("")
        ->check(notEmpty());
    addFormatOption(command, own->format, "json for a FILE that ends in .json, else csv");
    command.add_flag("--replace", own->replace, "Write U+FFFD for what is not UTF-8");
}

}  // namespace qv::host
