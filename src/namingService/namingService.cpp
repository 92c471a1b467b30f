#include "namingService.h"

#include "QvGeneral.h"

namespace qor::kevra {

NamingService::NamingService() {
    load();
}

void NamingService::registerServices(const ServiceInfoArray& request) {
    const Guard<Mutex> guard(mutex);
    bool changed = false;
    for (const ServiceInfo& service : request.services()) {
        QV_LOG(kLogDebug, "%s id: %d, address: %s", "NamingService::registerServices", service.id(),
               service.address().c_str());
        const auto [entry, isNew] = serviceMap.try_emplace(service.id(), service);
        if (isNew) {
            changed = true;
        } else if (entry->second.address() != service.address()) {
            // Copied before it is put in place, so that no memory costs no entry.
            ServiceInfo replacement(service);
            entry->second.Swap(&replacement);
            changed = true;
        }
    }
    if (changed) {
        QV_LOG(kLogDebug, "%s Save address", "NamingService::registerServices");
        save();
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

// The directory lives in memory only: there is no store to load from or to save to.
void NamingService::load() {}
void NamingService::save() {}

}  // namespace qor::kevra
