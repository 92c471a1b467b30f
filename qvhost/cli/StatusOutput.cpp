// SPDX-License-Identifier: Apache-2.0

#include "cli/StatusOutput.h"

#include <QvFrame.h>
#include <QvPlugin.h>
#include <QvText.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/JsonLine.h"

namespace qv::host {

namespace {

using client::HostStatus;
using Json = nlohmann::ordered_json;
using Counts = std::map<uint32_t, uint64_t>;

struct Name {
    uint32_t code;
    const char* json;
    const char* text;
};

constexpr Name kCommands[] = {
    {QV_HOST_COMMAND_PING, "ping", "ping"},
    {QV_HOST_COMMAND_STATUS, "status", "status"},
    {QV_HOST_COMMAND_SYNC, "sync", "sync"},
    {QV_COMMAND_SET_DEBUG_LEVEL, "level", "level"},
    {QV_HOST_COMMAND_HELLO, "hello", "hello"},
    {QV_HOST_COMMAND_FIND, "find", "find"},
    {QV_HOST_COMMAND_SUBSCRIBE, "subscribe", "subscribe"},
    {QV_COMMAND_REGISTER_SERVICES, "register", "register"},
    {QV_COMMAND_UNREGISTER_SERVICES, "unregister", "unregister"},
    {QV_COMMAND_GET_SERVICES, "list", "list"},
};

constexpr Name kResults[] = {
    {QV_ERROR_ARGUMENT, "invalid", "invalid"},
    {QV_ERROR_NO_MEMORY, "noMemory", "no memory"},
    {QV_HOST_ERROR_FORBIDDEN, "forbidden", "forbidden"},
    {QV_HOST_ERROR_CLIENTS, "tooManyClients", "too many clients"},
    {QV_HOST_ERROR_LENGTH, "tooLong", "too long"},
    {QV_HOST_ERROR_TIMEOUT, "tooSlow", "too slow"},
    {QV_HOST_ERROR_STOPPING, "stopping", "stopping"},
    {QV_HOST_ERROR_COMMAND, "unknownCommand", "unknown command"},
    {QV_HOST_ERROR_PLUGIN, "pluginFailed", "plug-in failed"},
    {QV_HOST_ERROR_REFUSED, "cannotHold", "directory cannot hold it"},
    {QV_HOST_ERROR_NOT_KEPT, "notKept", "not kept"},
    {QV_HOST_ERROR_FILE, "fileBehind", "file behind"},
    {QV_HOST_ERROR_PRIVILEGE, "notPrivileged", "not privileged"},
    {QV_HOST_ERROR_SUBSCRIBED, "subscribed", "subscribed already"},
};

template <typename Names>
const Name* nameOf(uint32_t code, const Names& names) {
    const auto found = std::find_if(std::begin(names), std::end(names),
                                    [code](const Name& name) { return name.code == code; });
    return found == std::end(names) ? nullptr : &*found;
}

template <typename Names>
Json jsonOf(const Counts& counts, const Names& names) {
    Json json = Json::object();
    for (const auto& [code, count] : counts) {
        const Name* const name = nameOf(code, names);
        json[name == nullptr ? fmt::format("{}", code) : name->json] = count;
    }
    return json;
}

template <typename Names>
std::string textOf(const Counts& counts, const Names& names) {
    std::vector<std::string> texts;
    for (const auto& [code, count] : counts) {
        const Name* const name = nameOf(code, names);
        texts.push_back(name == nullptr ? fmt::format("{} {}", code, count)
                                        : fmt::format("{} {}", name->text, count));
    }
    return texts.empty() ? "none" : fmt::format("{}", fmt::join(texts, ", "));
}

bool isKnown(HostStatus::Time time) {
    return time != HostStatus::Time();
}

Json jsonOf(HostStatus::Time time) {
    return isKnown(time) ? Json(time.time_since_epoch().count()) : Json();
}

template <typename Duration>
Json jsonOf(const std::optional<Duration>& duration) {
    return duration ? Json(duration->count()) : Json();
}

// A time that the calendar does not have is shown as a number of seconds.
std::string textOf(HostStatus::Time time) {
    const auto seconds = time.time_since_epoch().count();
    const auto value = static_cast<std::time_t>(seconds);
    std::tm parts = {};
    char text[64];
    if (gmtime_r(&value, &parts) == nullptr ||
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) {
        return fmt::format("second {}", seconds);
    }
    return text;
}

// Returns ", since" and the time, or nothing if the time is unknown.
std::string sinceTextOf(HostStatus::Time time) {
    return isKnown(time) ? ", since " + textOf(time) : "";
}

std::string textOf(std::chrono::microseconds duration) {
    return fmt::format("{:.3f} ms", std::chrono::duration<double, std::milli>(duration).count());
}

std::string underWayTextOf(const std::optional<std::chrono::microseconds>& age) {
    return age ? "; one under way for " + textOf(*age) : "";
}

std::string sizeTextOf(uint64_t bytes) {
    constexpr double kKibi = 1024;
    const auto size = static_cast<double>(bytes);
    return size < kKibi           ? fmt::format("{} bytes", bytes)
           : size < kKibi * kKibi ? fmt::format("{:.1f} KiB", size / kKibi)
                                  : fmt::format("{:.1f} MiB", size / kKibi / kKibi);
}

std::string counted(uint64_t count, const char* noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string keptTextOf(const HostStatus& status) {
    return status.isKept ? "yes"
                         : fmt::format("no{}: {}", sinceTextOf(status.notKeptSince),
                                       text::printable(status.notKeptReason));
}

std::string fileTextOf(const HostStatus::File& file) {
    const std::string path = text::printable(file.path);
    if (file.behind == 0 && file.problem.empty()) {
        return path + " holds the directory";
    }
    // A file that somebody else changed lacks no change of a client.
    const std::string what = file.behind == 0 ? "does not hold the directory"
                                              : "is behind by " + counted(file.behind, "change");
    return fmt::format("{} {}{}{}{}", path, what, sinceTextOf(file.behindSince),
                       file.problem.empty() ? "" : ": ", text::printable(file.problem));
}

Json jsonOf(const HostStatus& status) {
    const HostStatus::File& file = status.file;
    const HostStatus::Commits& commits = status.commits;
    const HostStatus::Saves& saves = status.saves;
    return {
        {"version", status.version},
        {"startTime", jsonOf(status.startTime)},
        {"start", status.start},
        {"services", status.services},
        {"addressBytes", status.addressBytes},
        {"revision", status.revision},
        {"kept", status.isKept},
        {"notKeptSince", jsonOf(status.notKeptSince)},
        {"notKeptReason", status.isKept ? Json() : Json(status.notKeptReason)},
        {"file",
         {{"path", file.path},
          {"revision", file.revision},
          {"behind", file.behind},
          {"behindSince", jsonOf(file.behindSince)},
          {"problem", file.problem.empty() ? Json() : Json(file.problem)}}},
        {"commits",
         {{"count", commits.count},
          {"changes", commits.changes},
          {"mostChanges", commits.mostChanges},
          {"longestMicroseconds", commits.longest.count()},
          {"underWayMicroseconds", jsonOf(commits.underWay)}}},
        {"saves",
         {{"count", saves.count},
          {"longestMicroseconds", saves.longest.count()},
          {"underWayMicroseconds", jsonOf(saves.underWay)}}},
        {"clients", status.clients},
        {"clientLimit", status.clientLimit},
        {"subscribers", status.subscribers},
        {"memory", status.memory},
        {"memoryLimit", status.memoryLimit},
        {"level", status.level ? Json(*status.level) : Json()},
        {"requests", jsonOf(status.requests, kCommands)},
        {"refusals", jsonOf(status.refusals, kResults)},
    };
}

std::string tableOf(const HostStatus& status) {
    const HostStatus::Commits& commits = status.commits;
    const HostStatus::Saves& saves = status.saves;
    std::string table = fmt::format("host      version {}, serving since {}\n",
                                    text::printable(status.version), textOf(status.startTime));
    table += fmt::format("start     {}\n", text::printable(status.start));
    table += fmt::format("services  {} with {} of addresses, revision {}\n", status.services,
                         sizeTextOf(status.addressBytes), status.revision);
    table += fmt::format("kept      {}\n", keptTextOf(status));
    table += fmt::format("file      {}\n", fileTextOf(status.file));
    table += fmt::format("commits   {} with {}, at most {} in one, the longest {}{}\n",
                         commits.count, counted(commits.changes, "change"), commits.mostChanges,
                         textOf(commits.longest), underWayTextOf(commits.underWay));
    table += fmt::format("saves     {}, the longest {}{}\n", saves.count, textOf(saves.longest),
                         underWayTextOf(saves.underWay));
    table += fmt::format("clients   {} of {}, {} subscribed\n", status.clients, status.clientLimit,
                         status.subscribers);
    table += fmt::format("memory    {} of {}\n", sizeTextOf(status.memory),
                         sizeTextOf(status.memoryLimit));
    if (status.level) {
        table += fmt::format("level     {}\n", *status.level);
    }
    table += fmt::format("requests  {}\n", textOf(status.requests, kCommands));
    table += fmt::format("refused   {}\n", textOf(status.refusals, kResults));
    return table;
}

}  // namespace

std::string formatStatus(const HostStatus& status, Format format) {
    return format == Format::Json ? jsonLine(jsonOf(status)) : tableOf(status);
}

}  // namespace qv::host
