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
            unsaved = unlisted = true;
        } else if (entry->second.address() != service.address()) {
            // Copied before it is put in place, so that no memory costs no entry.
            ServiceInfo replacement(service);
            entry->second.Swap(&replacement);
            unsaved = unlisted = true;
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
        if (serviceMap.erase(service.id()) != 0) {
            unlisted = true;
        }
    }
}

NamingService::Listing NamingService::getServices() {
    const Guard<Mutex> guard(mutex);
    if (unlisted) {
        makeListing();
        unlisted = false;
    }
    return Listing(listing, listingMutex);
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

void NamingService::makeListing() {
    const std::lock_guard hold(listingMutex);
    const int size = static_cast<int>(serviceMap.size());
    const int capacity = listing.services_size() + listing.services().ClearedCount();
    if (size < capacity / 2) {
        // The memory of a directory that was much larger goes back.
        ServiceInfoArray().Swap(&listing);
    }
    listing.Clear();
    listing.mutable_services()->Reserve(size);
    for (const auto& [id, service] : serviceMap) {
        ServiceInfo* entry = listing.add_services();
        entry->set_id(service.id());
        entry->set_address(service.address());
    }
    static_cast<void>(listing.ByteSizeLong());
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
