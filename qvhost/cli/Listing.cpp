#include "cli/Listing.h"

#include <QvText.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "StandardStreams.h"

namespace qv::host {

namespace {

bool hasColours() {
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return (refused == nullptr || *refused == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

std::string formatForTerminal(std::vector<Service> services, Format format) {
    if (format == Format::Csv) {
        for (Service& service : services) {
            service.address = text::escaped(service.address);
        }
    }
    std::string listing = formatServices(services, format);
    if (format == Format::Table && !services.empty() && hasColours()) {
        listing.insert(listing.find('\n'), "\x1b[0m");
        listing.insert(0, "\x1b[1m");
    }
    return listing;
}

}  // namespace

bool isTerminal(int descriptor) {
    return isatty(descriptor) == 1;
}

void writeListing(const std::vector<Service>& services, Format format) {
    writeOutput(stdout, isTerminal(STDOUT_FILENO) ? formatForTerminal(services, format)
                                                  : formatServices(services, format));
}

}  // namespace qv::host
