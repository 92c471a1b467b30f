#include "namingService.h"

#include "QvGeneral.h"
#include "configuration.h"

namespace qor::kevra {

namespace {

// In the configuration's root. The fields of a service are stored in lower case, this is not.
constexpr const char* kStorageKey = "Address";

}  // namespace

NamingService::NamingService() {
    load();
}

void NamingService::registerServices(const ServiceInfoArray& request) {
    const Guard<Mutex> guard(mutex);
    for (const ServiceInfo& service : request.services()) {
        QV_LOG(kLogDebug, "%s id: %d, address: %s", "NamingService::registerServices", service.id(),
               service.address().c_str());
        const auto [entry, isNew] = serviceMap.try_emplace(service.id(), service);
        if (isNew) {
            unsaved = true;
        } else if (entry->second.address() != service.address()) {
            // Copied before it is put in place, so that no memory costs no entry.
            ServiceInfo replacement(service);
            entry->second.Swap(&replacement);
            unsaved = true;
        }
    }
    if (unsaved) {
        QV_LOG(kLogDebug, "%s Save address", "NamingService::registerServices");
        save();
        unsaved = false;
    }
}

void NamingService::unregisterServices(const ServiceInfoArray& request) {
    const Guard<Mutex> guard(mutex);
    for (const ServiceInfo& service : request.services()) {
        serviceMap.erase(service.id());
    }
}

void NamingService::getServices(ServiceInfoArray& answer) {
    answer.Clear();
    const Guard<Mutex> guard(mutex);
    answer.mutable_services()->Reserve(static_cast<int>(serviceMap.size()));
    for (const auto& [id, service] : serviceMap) {
        ServiceInfo* copy = answer.add_services();
        copy->set_id(service.id());
        copy->set_address(service.address());
    }
}

// Of services that are stored under one identifier the last counts.
void NamingService::load() {
    ServiceInfoArray stored;
    if (!g_cfg->get(stored, kStorageKey)) {
        return;
    }
    for (ServiceInfo& service : *stored.mutable_services()) {
        // They were saved in this order.
        serviceMap.try_emplace(serviceMap.end(), service.id())->second.Swap(&service);
    }
}

// The whole directory, each time. Where it cannot be stored, the services stay registered, and the
// next save tries again with all of them.
void NamingService::save() {
    ServiceInfoArray all;
    all.mutable_services()->Reserve(static_cast<int>(serviceMap.size()));
    for (const auto& [id, service] : serviceMap) {
        all.add_services()->CopyFrom(service);
    }
    if (g_cfg->set(all, kStorageKey)) {
        g_cfg->save();
    }
}

}  // namespace qor::kevra
