// SPDX-License-Identifier: Apache-2.0

#include "server/PluginRequests.h"

#include <QvResult.h>
#include <fmt/format.h>

#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "namingService.pb.h"
#include "server/PluginError.h"

namespace qv::host {

namespace {

using qor::kevra::ServiceInfo;
using qor::kevra::ServiceInfoArray;

void add(ServiceInfoArray& request, const ServiceView& service) {
    ServiceInfo* const entry = request.add_services();
    entry->set_id(service.id);
    entry->set_address(service.address.data(), service.address.size());
}

std::string serialised(const ServiceInfoArray& request) {
    std::string bytes;
    if (!request.SerializeToString(&bytes)) {
        throw std::bad_alloc();
    }
    return bytes;
}

}  // namespace

PluginRequests requestsFor(const Edits& edits, const Snapshot& target) {
    ServiceInfoArray withdrawal;
    ServiceInfoArray registration;
    for (const auto& [id, address] : edits) {
        if (address) {
            add(registration, {id, *address});
        } else {
            withdrawal.add_services()->set_id(id);
        }
    }
    if (registration.services_size() == 0 && !target.empty()) {
        const ServiceView service = (*target.blocks().front())[0];
        withdrawal.add_services()->set_id(service.id);
        add(registration, service);
    }
    return {serialised(withdrawal), serialised(registration)};
}

SnapshotPointer servicesOf(const Plugin& plugin) {
    const Plugin::Answer answer = plugin.call(QV_COMMAND_GET_SERVICES, {});
    ServiceInfoArray list;
    if (answer.result() != QV_OK) {
        throw PluginError(
            fmt::format("cannot ask the plug-in for its services: it answered {} ({})",
                        answer.result(), resultMeaning(answer.result())));
    }
    if (!list.ParseFromArray(answer.bytes().data(), static_cast<int>(answer.bytes().size()))) {
        throw PluginError("cannot ask the plug-in for its services: its answer is no list");
    }
    std::vector<Service> services;
    services.reserve(static_cast<std::size_t>(list.services_size()));
    for (ServiceInfo& service : *list.mutable_services()) {
        if (!services.empty() && services.back().id >= service.id()) {
            throw PluginError("cannot ask the plug-in for its services: its list is not in order");
        }
        services.push_back({service.id(), std::move(*service.mutable_address())});
    }
    return std::make_shared<const Snapshot>(0, services);
}

void execute(const Plugin& plugin, uint32_t command, const std::string& input) {
    const int result = plugin.call(command, input).result();
    if (result != QV_OK) {
        throw PluginError(
            fmt::format("cannot execute the command {:#06x}: the plug-in answered {} "
                        "({})",
                        command, result, resultMeaning(result)));
    }
}

}  // namespace qv::host
