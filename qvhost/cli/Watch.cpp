#include "cli/Watch.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/Listing.h"

namespace qv::host {

namespace {

bool areEqual(const std::vector<Service>& a, const std::vector<Service>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const Service& one, const Service& other) {
                          return one.id == other.id && one.address == other.address;
                      });
}

// Makes SIGINT and SIGTERM end the program at once. Watching leaves nothing to clean up.
void endOnSignals() {
    for (const int signal : {SIGINT, SIGTERM}) {
        struct sigaction action = {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            action.sa_handler = [](int) { _exit(kSuccess); };
            sigaction(signal, &action, nullptr);
        }
    }
}

// Waits for the interval. Returns false as soon as the reader has closed the output.
bool waitFor(std::chrono::milliseconds interval) {
    pollfd output = {STDOUT_FILENO, 0, 0};
    return poll(&output, 1, static_cast<int>(interval.count())) <= 0;
}

bool write(const std::vector<Service>& services, Format format) {
    try {
        if (isTerminal(STDOUT_FILENO)) {
            constexpr char kCursorHomeAndClear[] = "\x1b[H\x1b[2J";
            writeOutput(stdout, kCursorHomeAndClear);
        }
        writeListing(services, format);
        return true;
    } catch (const OutputClosed&) {
        return false;
    }
}

}  // namespace

void watchServices(const CommonOptions& options, Format format,
                   std::chrono::milliseconds interval) {
    endOnSignals();
    client::Client host = connectToHost(options);
    std::optional<std::vector<Service>> shown;
    bool isAway = false;
    do {
        std::vector<Service> services;
        try {
            services = host.services();
        } catch (const client::Error& error) {
            if (!shown) {
                throw;
            }
            if (!isAway) {
                reportError(fmt::format("{}; trying again", error.what()));
            }
            isAway = true;
            continue;
        }
        if (isAway) {
            reportError("connected again");
        }
        // On a terminal, the messages about the host stand below the listing. So print it again.
        if (!shown || !areEqual(*shown, services) || (isAway && isTerminal(STDOUT_FILENO))) {
            if (!write(services, format)) {
                return;
            }
            shown = std::move(services);
        }
        isAway = false;
    } while (waitFor(interval));
}

}  // namespace qv::host
