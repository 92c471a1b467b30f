// SPDX-License-Identifier: Apache-2.0

#include "server/Status.h"

#include <QvHost.pb.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace qv::host {

namespace {

int64_t seconds(std::chrono::system_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

// Returns how long something takes already.
int64_t microsecondsSince(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                                 begin)
        .count();
}

void describe(const Status& status, wire::HostFile& file) {
    file.set_path(status.filePath);
    file.set_revision(status.file.fileRevision);
    file.set_behind(static_cast<uint64_t>(
        std::max<int64_t>(status.state->snapshot->revision() - status.file.fileRevision, 0)));
    if (status.file.behindSince) {
        file.set_behind_since(seconds(*status.file.behindSince));
    }
    if (!status.file.problem.empty()) {
        file.set_problem(status.file.problem);
    }
}

void describe(const Recorder::Statistics& statistics, wire::HostCommits& commits) {
    commits.set_count(statistics.commits);
    commits.set_changes(statistics.changes);
    commits.set_most_changes(statistics.mostChanges);
    commits.set_longest_microseconds(statistics.longest.count());
    if (statistics.since) {
        commits.set_under_way_microseconds(microsecondsSince(*statistics.since));
    }
}

void describe(const Follower::Statistics& statistics, wire::HostSaves& saves) {
    saves.set_count(statistics.saves);
    saves.set_longest_microseconds(statistics.longest.count());
    if (statistics.since) {
        saves.set_under_way_microseconds(microsecondsSince(*statistics.since));
    }
}

void add(uint32_t code, uint64_t number, wire::HostCount& count) {
    count.set_code(code);
    count.set_count(number);
}

}  // namespace

std::string serialised(const Status& status, const Counts& counts) {
    wire::HostStatus message;
    message.set_version(status.version);
    message.set_start_time(seconds(status.startTime));
    message.set_start(status.file.start);
    const Snapshot& snapshot = *status.state->snapshot;
    message.set_services(snapshot.size());
    message.set_address_bytes(snapshot.addressBytes());
    message.set_revision(snapshot.revision());
    message.set_kept(status.state->isKept);
    if (!status.state->isKept) {
        message.set_not_kept_reason(status.state->reason);
        if (status.commits.notKeptSince) {
            message.set_not_kept_since(seconds(*status.commits.notKeptSince));
        }
    }
    describe(status, *message.mutable_file());
    describe(status.commits, *message.mutable_commits());
    describe(status.file, *message.mutable_saves());
    message.set_clients(status.clients);
    message.set_client_limit(status.clientLimit);
    message.set_subscribers(status.subscribers);
    message.set_memory(status.memory);
    message.set_memory_limit(status.memoryLimit);
    if (status.file.level) {
        message.set_level(*status.file.level);
    }
    counts.forEachRequest(
        [&](uint32_t code, uint64_t number) { add(code, number, *message.add_requests()); });
    counts.forEachRefusal(
        [&](uint32_t code, uint64_t number) { add(code, number, *message.add_refusals()); });
    return message.SerializeAsString();
}

std::string summary(const Status& status) {
    std::string text =
        fmt::format("services: {}, clients: {}", status.state->snapshot->size(), status.clients);
    if (!status.state->isKept) {
        text += "; changes are not kept: " + status.state->reason;
    }
    if (!status.file.problem.empty()) {
        text += "; the plug-in's file is behind: " + status.file.problem;
    }
    return text;
}

}  // namespace qv::host
