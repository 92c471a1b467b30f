// SPDX-License-Identifier: Apache-2.0

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
#include "cli/OptionValues.h"
#include "cli/Subcommands.h"
#include "cli/TextFormat.h"
#include "server/NewFile.h"

namespace qv::host {

namespace {

constexpr char kExportFooter[] =
    "Writes what `qvhost import` reads: CSV whose first line is id,address, or a JSON array of\n"
    "objects with id and address. In CSV, a line feed ends each line, and fields are quoted by\n"
    "RFC 4180. A new file is complete or does not exist, and has the mode 0600. If something\n"
    "stands there already, qvhost leaves it alone and fails.\n"
    "\n"
    "An address may hold any bytes, but these formats hold UTF-8 only. If an address is not\n"
    "UTF-8, qvhost names its service and writes nothing. With --replace it writes U+FFFD\n"
    "instead of the bytes that are not UTF-8.\n"
    "\n"
    "  qvhost export services.csv\n"
    "  qvhost export --format json | ssh other qvhost import -";

struct ExportOptions {
    std::string path;
    std::string format;
    bool replace = false;
};

void requireUtf8(const std::vector<Service>& services) {
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
            "nothing exported: the address{} of {}{} {} not UTF-8 (use --replace)",
            count == 1 ? "" : "es", fmt::join(named, ", "),
            count > named.size() ? fmt::format(" and {} more", count - named.size()) : "",
            count == 1 ? "is" : "are"));
    }
}

int exportServices(const ExportOptions& own, const CommonOptions& options) {
    const bool isJsonFile = std::filesystem::path(own.path).extension() == ".json";
    const Format format = formatNamed(own.format).value_or(isJsonFile ? Format::Json : Format::Csv);
    const std::vector<Service> services = connectToHost(options).services();
    if (!own.replace) {
        requireUtf8(services);
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
    Subcommand subcommand =
        line.add("export", "Write the directory of services to a file", kExportFooter,
                 CommandLine::kHostOptions,
                 [own, &options = line.options()] { return exportServices(*own, options); });
    subcommand.word("FILE", own->path, "The file. The default, and -, is standard output",
                    Subcommand::Need::Optional, notEmpty());
    addFormatOption(subcommand, own->format, "json if FILE ends in .json, otherwise csv");
    subcommand.flag("--replace", own->replace, "Write U+FFFD for bytes that are not UTF-8");
}

}  // namespace qv::host
