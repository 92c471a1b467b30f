// SPDX-License-Identifier: Apache-2.0

#include "namingService.h"

#include "QvGeneral.h"

namespace qor::kevra {

namespace {

// The key of the directory in the configuration's root. It begins with a capital letter, unlike the
// keys of a service (compatibility C25).
constexpr const char* kStorageKey = "Address";

// Whether the directory holds a change that no registration has tried to save. This is so after a
// registration that ran out of memory. The component that made the registration repeats it, and
// the repetition changes nothing but must reach the file. Guarded by the directory's mutex.
bool g_saveIsDue = false;

}  // namespace

NamingService::NamingService() {
    g_saveIsDue = false;
    load();
}

void NamingService::registerServices(const ServiceInfoArray& request) {
    const Guard<Mutex> guard(mutex);
    // An entry without an identifier counts as 0 (compatibility C8).
    for (const ServiceInfo& service : request.services()) {
        QV_LOG(kLogDebug, "%s id: %d, address: %s", "NamingService::registerServices", service.id(),
               service.address().c_str());
        const auto [entry, isNew] = serviceMap.try_emplace(service.id(), service);
        if (isNew) {
            g_saveIsDue = true;
            // Only the address is compared (compatibility C6).
        } else if (entry->second.address() != service.address()) {
            // A copy that runs out of memory leaves the stored service as it is.
            ServiceInfo replacement(service);
            entry->second.Swap(&replacement);
            g_saveIsDue = true;
        }
    }
    if (g_saveIsDue && request.services_size() != 0) {
        QV_LOG(kLogDebug, "%s Save address", "NamingService::registerServices");
        save();
        g_saveIsDue = false;
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
        ServiceInfo* const entry = answer.add_services();
        entry->set_id(service.id());
        entry->set_address(service.address());
    }
}

// Of several stored services with one identifier the last one counts.
void NamingService::load() {
    ServiceInfoArray stored;
    if (!g_cfg->get(stored, kStorageKey)) {
        return;
    }
    for (ServiceInfo& service : *stored.mutable_services()) {
        // The file lists the services in ascending order, so the end is the right hint.
        serviceMap.try_emplace(serviceMap.end(), service.id())->second.Swap(&service);
    }
}

// Writes the whole directory. A failure is not reported: the directory keeps the services, and the
// next save writes all of them.
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
