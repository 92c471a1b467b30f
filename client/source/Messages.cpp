// SPDX-License-Identifier: Apache-2.0

#include "Messages.h"

#include <QvFrame.h>
#include <QvPlugin.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>

#include "KevraCommonMsg.pb.h"
#include "QvHost.pb.h"
#include "Wire.h"
#include "namingService.pb.h"

namespace qv::client {

namespace {

HostStatus::Time timeOf(int64_t seconds) {
    return HostStatus::Time(std::chrono::seconds(seconds));
}

std::map<uint32_t, uint64_t> countsOf(
    const google::protobuf::RepeatedPtrField<host::wire::HostCount>& messages) {
    std::map<uint32_t, uint64_t> counts;
    for (const host::wire::HostCount& message : messages) {
        counts[message.code()] = message.count();
    }
    return counts;
}

// Returns the age of the commit or save under way.
template <typename Message>
std::optional<std::chrono::microseconds> underWay(const Message& message) {
    if (!message.has_under_way_microseconds()) {
        return std::nullopt;
    }
    return std::chrono::microseconds(message.under_way_microseconds());
}

HostStatus::File fileOf(const host::wire::HostFile& message) {
    HostStatus::File file;
    file.path = message.path();
    file.revision = message.revision();
    file.behind = message.behind();
    file.behindSince = timeOf(message.behind_since());
    file.problem = message.problem();
    return file;
}

HostStatus::Commits commitsOf(const host::wire::HostCommits& message) {
    HostStatus::Commits commits;
    commits.count = message.count();
    commits.changes = message.changes();
    commits.mostChanges = message.most_changes();
    commits.longest = std::chrono::microseconds(message.longest_microseconds());
    commits.underWay = underWay(message);
    return commits;
}

HostStatus::Saves savesOf(const host::wire::HostSaves& message) {
    HostStatus::Saves saves;
    saves.count = message.count();
    saves.longest = std::chrono::microseconds(message.longest_microseconds());
    saves.underWay = underWay(message);
    return saves;
}

}  // namespace

std::string messageOfServices(const std::vector<Service>& services) {
    qor::kevra::ServiceInfoArray message;
    for (const Service& service : services) {
        qor::kevra::ServiceInfo* const info = message.add_services();
        info->set_id(service.id);
        info->set_address(service.address);
    }
    return serialised(message);
}

std::string messageOfIds(const std::vector<int32_t>& ids) {
    qor::kevra::ServiceInfoArray message;
    for (const int32_t id : ids) {
        message.add_services()->set_id(id);
    }
    return serialised(message);
}

std::string messageOfLevel(int32_t level) {
    qor::kevra::DebugOption message;
    message.set_plugins(QV_PLUGIN_ID_NAMING_SERVICE);
    message.set_debug_level(level);
    return serialised(message);
}

std::string messageOfFind(const std::vector<int32_t>& ids) {
    host::wire::HostFind message;
    for (const int32_t id : ids) {
        message.add_ids(id);
    }
    return serialised(message);
}

std::string messageOfHello() {
    host::wire::HostHello message;
    message.set_edition(QV_PROTOCOL_EDITION);
    message.set_version("libQvClient " QV_CLIENT_VERSION_TEXT);
    return serialised(message);
}

std::optional<std::vector<Service>> servicesOf(const std::string& message) {
    qor::kevra::ServiceInfoArray array;
    if (!hasFewFields(message, kMostServices) || !parse(array, message)) {
        return std::nullopt;
    }
    std::vector<Service> services;
    services.reserve(static_cast<std::size_t>(array.services_size()));
    for (int i = 0; i < array.services_size(); ++i) {
        services.push_back({array.services(i).id(), array.services(i).address()});
    }
    return services;
}

std::optional<HostAbilities> abilitiesOf(const std::string& message) {
    host::wire::HostHello hello;
    if (!parse(hello, message) || !hello.has_edition()) {
        return std::nullopt;
    }
    HostAbilities abilities;
    abilities.edition = hello.edition();
    abilities.version = hello.version();
    abilities.commands.insert(hello.commands().begin(), hello.commands().end());
    abilities.longestRequest = hello.longest_request();
    abilities.mostServices = hello.most_services();
    abilities.mostAddressBytes = hello.most_address_bytes();
    abilities.longestAddress = hello.longest_address();
    abilities.mostIds = hello.most_ids();
    return abilities;
}

std::optional<HostStatus> statusOf(const std::string& message) {
    host::wire::HostStatus parsed;
    if (!parse(parsed, message) || !parsed.has_kept()) {
        return std::nullopt;
    }
    HostStatus status;
    status.version = parsed.version();
    status.startTime = timeOf(parsed.start_time());
    status.start = parsed.start();
    status.services = parsed.services();
    status.addressBytes = parsed.address_bytes();
    status.revision = parsed.revision();
    status.isKept = parsed.kept();
    status.notKeptSince = timeOf(parsed.not_kept_since());
    status.notKeptReason = parsed.not_kept_reason();
    status.file = fileOf(parsed.file());
    status.commits = commitsOf(parsed.commits());
    status.saves = savesOf(parsed.saves());
    status.clients = parsed.clients();
    status.clientLimit = parsed.client_limit();
    status.subscribers = parsed.subscribers();
    status.memory = parsed.memory();
    status.memoryLimit = parsed.memory_limit();
    if (parsed.has_level()) {
        status.level = parsed.level();
    }
    status.requests = countsOf(parsed.requests());
    status.refusals = countsOf(parsed.refusals());
    return status;
}

}  // namespace qv::client
