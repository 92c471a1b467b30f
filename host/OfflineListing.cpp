#include "OfflineListing.h"

#include <fmt/format.h>

#include <cstdint>
#include <map>
#include <stdexcept>
#include <utility>

#include "ConfigurationFile.h"
#include "PropertyListFile.h"
#include "QvPlistConvert.h"

namespace qv::host {

namespace {

using State = PropertyListFile::State;

// Returns the value under a key, or null if there is none of this type.
template <class T>
T valueOf(CFDictionaryRef dictionary, const char* key, CFTypeID type) {
    const qor::kevra::CFHolder<CFStringRef> name = qor::kevra::createKey(key);
    if (!name) {
        throw std::bad_alloc();
    }
    const void* const value = CFDictionaryGetValue(dictionary, name.get());
    return value != nullptr && CFGetTypeID(value) == type ? static_cast<T>(value) : nullptr;
}

// Returns what the plug-in takes from the same dictionary at its start. If several services share
// an identifier, the last one counts.
std::vector<Service> servicesIn(CFDictionaryRef root) {
    qor::kevra::ServiceInfoArray stored;
    const auto entry = valueOf<CFDictionaryRef>(root, "Address", CFDictionaryGetTypeID());
    if (entry != nullptr) {
        qor::kevra::convert(valueOf<CFArrayRef>(entry, "services", CFArrayGetTypeID()),
                            *stored.mutable_services());
    }
    std::map<int32_t, std::string> byIdentifier;
    for (const qor::kevra::ServiceInfo& service : stored.services()) {
        byIdentifier[service.id()] = service.address();
    }
    std::vector<Service> services;
    services.reserve(byIdentifier.size());
    for (auto& [id, address] : byIdentifier) {
        services.push_back({id, std::move(address)});
    }
    return services;
}

}  // namespace

OfflineListing listOffline(const std::string& configurationFile) {
    const PropertyListFile file = loadPropertyList(configurationFile);
    if (file.state == State::Good) {
        return {servicesIn(file.root.get()), "read " + configurationFile};
    }
    const std::string problem = fmt::format("{} {}", configurationFile, file.problem);
    if (file.state == State::Unusable) {
        throw std::runtime_error("cannot list the services: " + problem);
    }
    const std::string backup = backupOf(configurationFile);
    const PropertyListFile copy = loadPropertyList(backup);
    if (copy.state != State::Good) {
        throw std::runtime_error(fmt::format("cannot list the services: {}, and its backup {} {}",
                                             problem, backup, copy.problem));
    }
    return {servicesIn(copy.root.get()), fmt::format("{}; read its backup {}", problem, backup)};
}

}  // namespace qv::host
