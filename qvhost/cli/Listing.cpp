// SPDX-License-Identifier: Apache-2.0

#include "cli/Listing.h"

#include <QvSystem/Utf8.h>
#include <QvText.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstddef>
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

// Returns the width of the terminal in characters, or 0 if the terminal does not tell.
std::size_t terminalWidth() {
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

// Returns the line, or the beginning of a long one and an ellipsis.
std::string fitted(std::string_view line, std::size_t width) {
    std::size_t length = 0;
    std::size_t fitting = 0;  // bytes that leave a place for the ellipsis
    for (std::size_t count = 0; length < line.size(); ++count) {
        if (count + 1 == width) {
            fitting = length;
        }
        if (count == width) {
            return std::string(line.substr(0, fitting)) + "\xe2\x80\xa6";
        }
        length += system::firstCharacter(line.substr(length)).length;
    }
    return std::string(line);
}

std::string fittedLines(std::string_view text, std::size_t width) {
    std::string lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        lines += fitted(text.substr(0, end), width) + '\n';
        text.remove_prefix(end + 1);
    }
    return lines;
}

std::string formatForTerminal(std::vector<Service> services, Format format) {
    if (format == Format::Csv) {
        for (Service& service : services) {
            service.address = text::escaped(service.address);
        }
    }
    std::string listing = formatServices(services, format);
    const std::size_t width = terminalWidth();
    if (format == Format::Table && width > 0) {
        listing = fittedLines(listing, width);
    }
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
