#include "cli/StoredServices.h"

#include <CoreFoundation/CoreFoundation.h>
#include <QvCFHolder.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <new>
#include <stdexcept>
#include <system_error>

#include "QvPlistConvert.h"
#include "cli/NewFile.h"
#include "cli/PropertyListFile.h"

namespace qv::host {

namespace {

using qor::kevra::CFHolder;
using State = PropertyListFile::State;

// Tells whether anything stands at the path, a symbolic link to nothing included.
bool exists(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0) {
        return true;
    }
    if (errno != ENOENT && errno != ENOTDIR) {
        throw std::system_error(errno, std::generic_category(), "cannot look for " + path);
    }
    return false;
}

std::string emptyDictionary() {
    const CFHolder<CFDictionaryRef> root(CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr,
                                                            0, &kCFTypeDictionaryKeyCallBacks,
                                                            &kCFTypeDictionaryValueCallBacks));
    const CFHolder<CFDataRef> document(
        root ? CFPropertyListCreateXMLData(kCFAllocatorDefault, root.get()) : nullptr);
    if (!document) {
        throw std::bad_alloc();
    }
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(document.get())),
            static_cast<std::size_t>(CFDataGetLength(document.get()))};
}

// Returns the value under a key, or null if there is none of this type.
template <class T>
T valueOf(CFDictionaryRef dictionary, const char* key, CFTypeID type) {
    const CFHolder<CFStringRef> name = qor::kevra::createString(key);
    if (!name) {
        throw std::bad_alloc();
    }
    const void* const value = CFDictionaryGetValue(dictionary, name.get());
    return value != nullptr && CFGetTypeID(value) == type ? static_cast<T>(value) : nullptr;
}

// Returns the services that the plug-in takes from the same dictionary at its start. If several
// services share an identifier, the last one counts.
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

std::string StoredServices::backup() const {
    const std::filesystem::path path = path_;
    return (path.parent_path() / "backup" / path.filename()).string();
}

std::string StoredServices::problem() const {
    if (path_.empty()) {
        return "the configuration file's path is too long";
    }
    const PropertyListFile file = loadPropertyList(path_);
    if (file.state == State::Missing && !exists(path_)) {
        return fmt::format("{} {} (qvhost init makes it)", path_, file.problem);
    }
    if (file.state != State::Good) {
        return fmt::format("{} {}", path_, file.problem);
    }
    if (access(path_.c_str(), W_OK) != 0) {
        return fmt::format("{} cannot be written: {}", path_,
                           std::generic_category().message(errno));
    }
    return "";
}

void StoredServices::make() const {
    if (path_.empty()) {
        throw std::runtime_error(problem());
    }
    if (exists(path_)) {
        throw std::runtime_error(path_ + " exists already and is left as it is");
    }
    if (exists(backup())) {
        const PropertyListFile copy = loadPropertyList(backup());
        throw std::runtime_error(
            copy.state == State::Good
                ? fmt::format("nothing made: the plug-in will restore {} from its backup {}", path_,
                              backup())
                : fmt::format("nothing made: there is a backup {}, but it {}; move it away first",
                              backup(), copy.problem));
    }
    makeNewFile(path_, emptyDictionary());
}

StoredServices::Contents StoredServices::read() const {
    const PropertyListFile file = loadPropertyList(path_);
    if (file.state == State::Good) {
        return {servicesIn(file.root.get()), "read " + path_};
    }
    const std::string problem = fmt::format("{} {}", path_, file.problem);
    if (file.state == State::Unusable) {
        throw std::runtime_error("cannot list the services: " + problem);
    }
    const PropertyListFile copy = loadPropertyList(backup());
    if (copy.state != State::Good) {
        throw std::runtime_error(fmt::format("cannot list the services: {}, and its backup {} {}",
                                             problem, backup(), copy.problem));
    }
    return {servicesIn(copy.root.get()), fmt::format("{}; read its backup {}", problem, backup())};
}

}  // namespace qv::host
