// SPDX-License-Identifier: Apache-2.0

#include "server/ServiceDocument.h"

#include <QvCFDictionary.h>
#include <QvSystem/Utf8.h>
#include <fmt/format.h>

#include <algorithm>
#include <new>
#include <system_error>
#include <utility>

#include "QvPlistConvert.h"

namespace qv::host {

namespace {

using qor::kevra::CFHolder;

constexpr char kDirectoryKey[] = "Address";
constexpr char kListKey[] = "services";

// Returns the value under a key, or null if there is none of this type. Throws std::bad_alloc.
template <class T>
T valueOf(CFDictionaryRef dictionary, const char* key, CFTypeID type) {
    CFTypeRef const value = qor::kevra::valueOf(dictionary, key);
    return value != nullptr && CFGetTypeID(value) == type ? static_cast<T>(value) : nullptr;
}

template <class Holder>
Holder required(Holder object) {
    if (!object) {
        throw std::bad_alloc();
    }
    return object;
}

void add(CFMutableDictionaryRef dictionary, const char* key, CFTypeRef value) {
    const auto name = required(qor::kevra::createString(key));
    if (!qor::kevra::addValue(dictionary, name.get(), value)) {
        throw std::bad_alloc();
    }
}

CFHolder<CFDataRef> xmlOf(CFDictionaryRef root) {
    return required(CFHolder<CFDataRef>(CFPropertyListCreateXMLData(kCFAllocatorDefault, root)));
}

// Returns a new dictionary with the keys of the root except "Address".
CFHolder<CFMutableDictionaryRef> withoutDirectory(CFDictionaryRef root) {
    CFHolder<CFMutableDictionaryRef> copy = required(qor::kevra::createDictionary());
    const auto addPair = [](const void* key, const void* value, void* target) {
        CFDictionaryAddValue(static_cast<CFMutableDictionaryRef>(target), key, value);
    };
    CFDictionaryApplyFunction(root, addPair, copy.get());
    // CFDictionaryAddValue() does not report that memory ran out.
    if (CFDictionaryGetCount(copy.get()) != CFDictionaryGetCount(root)) {
        throw std::bad_alloc();
    }
    const auto key = required(qor::kevra::createString(kDirectoryKey));
    CFDictionaryRemoveValue(copy.get(), key.get());
    return copy;
}

// Reads what otherKeysOf() returned.
CFHolder<CFMutableDictionaryRef> readOtherKeys(const std::string& document) {
    bool memoryRanOut = false;
    const CFHolder<CFDictionaryRef> keys =
        qor::kevra::readDictionary(document.data(), document.size(), &memoryRanOut);
    if (memoryRanOut) {
        throw std::bad_alloc();
    }
    return keys ? withoutDirectory(keys.get()) : required(qor::kevra::createDictionary());
}

// Returns the array of services that the file holds.
CFHolder<CFArrayRef> listOf(const Snapshot& snapshot) {
    qor::kevra::ServiceInfoArray message;
    message.mutable_services()->Reserve(static_cast<int>(snapshot.size()));
    snapshot.forEach([&](const ServiceView& service) {
        if (!system::isUtf8(service.address)) {
            throw std::system_error(
                std::make_error_code(std::errc::illegal_byte_sequence),
                fmt::format("the file cannot hold the address of service {}", service.id));
        }
        qor::kevra::ServiceInfo* const entry = message.add_services();
        entry->set_id(service.id);
        entry->set_address(service.address.data(), service.address.size());
    });
    CFArrayRef list = nullptr;
    if (!qor::kevra::convertCreate(message.services(), list)) {
        throw std::bad_alloc();
    }
    return CFHolder<CFArrayRef>(list);
}

}  // namespace

StoredServices servicesIn(CFDictionaryRef root) {
    StoredServices stored;
    const auto entry = valueOf<CFDictionaryRef>(root, kDirectoryKey, CFDictionaryGetTypeID());
    const auto list =
        entry == nullptr ? nullptr : valueOf<CFArrayRef>(entry, kListKey, CFArrayGetTypeID());
    qor::kevra::ServiceInfoArray message;
    stored.isDirectory = qor::kevra::convert(list, *message.mutable_services());

    std::vector<Service>& services = stored.services;
    services.reserve(static_cast<std::size_t>(message.services_size()));
    for (qor::kevra::ServiceInfo& service : *message.mutable_services()) {
        stored.isDirectory = stored.isDirectory && service.has_id() && service.has_address();
        services.push_back({service.id(), std::move(*service.mutable_address())});
    }
    std::stable_sort(services.begin(), services.end(),
                     [](const Service& one, const Service& other) { return one.id < other.id; });
    // From the end, the first of several services with one identifier is the last one.
    const auto kept =
        std::unique(services.rbegin(), services.rend(),
                    [](const Service& one, const Service& other) { return one.id == other.id; });
    services.erase(services.begin(), kept.base());
    return stored;
}

std::string emptyDocument() {
    return std::string(bytesOf(xmlOf(required(qor::kevra::createDictionary()).get()).get()));
}

std::string otherKeysOf(CFDictionaryRef root) {
    return std::string(bytesOf(xmlOf(withoutDirectory(root).get()).get()));
}

CFHolder<CFDataRef> documentOf(const Snapshot& services, const std::string& otherKeys) {
    const CFHolder<CFMutableDictionaryRef> root = readOtherKeys(otherKeys);
    {
        const CFHolder<CFMutableDictionaryRef> entry = required(qor::kevra::createDictionary());
        // The plug-in stores no list for a directory without services.
        if (!services.empty()) {
            add(entry.get(), kListKey, listOf(services).get());
        }
        add(root.get(), kDirectoryKey, entry.get());
    }
    return xmlOf(root.get());
}

}  // namespace qv::host
