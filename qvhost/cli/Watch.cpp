// SPDX-License-Identifier: Apache-2.0

#include <QvClient.h>
#include <QvText.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/JsonLine.h"
#include "cli/Numbers.h"
#include "cli/Subcommands.h"
#include "server/Service.h"

namespace qv::host {

namespace {

constexpr char kWatchFooter[] =
    "Prints a line for each service that is there, and then one for each change, until a signal\n"
    "or until nobody reads the output. Without identifiers, watches all services. A line has the\n"
    "time in UTC at which qvhost learned of the change, the kind of the change, the identifier\n"
    "and the new address. The kinds are + (registered), ~ (changed) and - (removed):\n"
    "\n"
    "  2026-11-20T09:19:12.364Z + 7 /run/a.sock\n"
    "  2026-11-20T09:20:40.021Z ~ 7 /run/b.sock\n"
    "  2026-11-20T09:21:03.770Z - 7\n"
    "\n"
    "Control characters, and bytes that are not UTF-8, are escaped as in a table. With --json "
    "each\n"
    "line is an object. Its time is in seconds since 1970, and U+FFFD replaces bytes that are not\n"
    "UTF-8:\n"
    "\n"
    "  {\"time\":1795166352.364,\"change\":\"registered\",\"id\":7,\"address\":\"/run/a.sock\"}\n"
    "\n"
    "If the host goes away, qvhost says so on standard error and waits until it is back. Then it\n"
    "prints what differs from what it has printed. The host must be there at the beginning.\n"
    "\n"
    "  qvhost watch 7 8";

using Milliseconds = std::chrono::milliseconds;

// A line of the output.
struct Change {
    enum class Kind { Registered, Changed, Removed };

    Kind kind;
    int32_t id;
    std::string address;  // empty if the service is removed
};

// Knows the services that were printed.
class Shown {
  public:
    // Takes an event over. Returns what differs from what was printed before, ascending by
    // identifier.
    std::vector<Change> take(const client::Event& event) {
        std::vector<Change> changes;
        if (event.kind == client::Event::Kind::Snapshot) {
            removeAllBut(event.registered, changes);
        }
        for (const std::vector<Service>* const services : {&event.registered, &event.changed}) {
            for (const Service& service : *services) {
                put(service, changes);
            }
        }
        for (const int32_t id : event.withdrawn) {
            if (addresses_.erase(id) != 0) {
                changes.push_back({Change::Kind::Removed, id, ""});
            }
        }
        std::sort(changes.begin(), changes.end(),
                  [](const Change& a, const Change& b) { return a.id < b.id; });
        return changes;
    }

  private:
    void removeAllBut(const std::vector<Service>& services, std::vector<Change>& changes) {
        std::map<int32_t, std::string> kept;
        for (const Service& service : services) {
            if (auto known = addresses_.extract(service.id)) {
                kept.insert(std::move(known));
            }
        }
        for (const auto& [id, address] : addresses_) {
            changes.push_back({Change::Kind::Removed, id, ""});
        }
        addresses_ = std::move(kept);
    }

    void put(const Service& service, std::vector<Change>& changes) {
        const auto [known, isNew] = addresses_.emplace(service.id, service.address);
        if (isNew || known->second != service.address) {
            known->second = service.address;
            changes.push_back({isNew ? Change::Kind::Registered : Change::Kind::Changed, service.id,
                               service.address});
        }
    }

    std::map<int32_t, std::string> addresses_;
};

std::string lineOf(const Change& change, Milliseconds time) {
    const auto seconds = static_cast<std::time_t>(time.count() / 1000);
    std::tm parts = {};
    char date[32] = "";
    gmtime_r(&seconds, &parts);
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
    const bool isRemoved = change.kind == Change::Kind::Removed;
    const char kind = isRemoved ? '-' : change.kind == Change::Kind::Registered ? '+' : '~';
    return fmt::format("{}.{:03}Z {} {}{}{}\n", date, time.count() % 1000, kind, change.id,
                       isRemoved ? "" : " ", text::escaped(change.address));
}

std::string jsonOf(const Change& change, Milliseconds time) {
    const bool isRemoved = change.kind == Change::Kind::Removed;
    nlohmann::ordered_json json = {
        {"time", static_cast<double>(time.count()) / 1000},
        {"change", isRemoved                                 ? "removed"
                   : change.kind == Change::Kind::Registered ? "registered"
                                                             : "changed"},
        {"id", change.id}};
    if (!isRemoved) {
        json["address"] = change.address;
    }
    return jsonLine(json);
}

// Waits until the subscription has something to do. Throws OutputClosed as soon as nobody reads the
// output any more.
void waitForEvent(const client::Subscription& changes) {
    pollfd entries[] = {{changes.descriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    constexpr int kNoLimit = -1;
    if (poll(entries, 2, kNoLimit) > 0 && (entries[1].revents & (POLLERR | POLLHUP)) != 0) {
        throw OutputClosed(std::make_error_code(std::errc::broken_pipe),
                           "cannot write to standard output");
    }
}

[[noreturn]] void watch(const std::vector<std::string>& words, const CommonOptions& options) {
    client::Subscription subscription = connectToHost(options).subscribe(parseIdentifiers(words));
    Shown shown;
    bool isAway = false;
    while (true) {
        const std::optional<client::Event> event = subscription.next(Milliseconds(0));
        if (!event) {
            waitForEvent(subscription);
            continue;
        }
        if (event->kind == client::Event::Kind::Disconnected) {
            reportError(event->reason + "; trying again");
            isAway = true;
            continue;
        }
        if (isAway) {
            reportError("connected again");
            isAway = false;
        }
        const auto time = std::chrono::duration_cast<Milliseconds>(
            std::chrono::system_clock::now().time_since_epoch());
        std::string output;
        for (const Change& change : shown.take(*event)) {
            output += options.json ? jsonOf(change, time) : lineOf(change, time);
        }
        writeOutput(stdout, output);
    }
}

}  // namespace

void addWatch(CommandLine& line) {
    const auto words = std::make_shared<std::vector<std::string>>();
    line.add("watch", "Print each change of services", kWatchFooter,
             CommandLine::kHostOptions | CommandLine::kJsonOption,
             [words, &options = line.options()]() -> int { watch(*words, options); })
        .words("ID", *words, "The services' identifiers; all services when not given",
               Subcommand::Need::Optional);
}

}  // namespace qv::host
