// SPDX-License-Identifier: Apache-2.0

#include "qvhost/durability/HostFiles.h"

#include <algorithm>
#include <filesystem>

#include "QvConfig.h"
#include "support/ConfigurationDocuments.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {

std::string directoryOf(const HostProcess& host) {
    return host.files().path("config");
}

std::string configurationOf(const HostProcess& host) {
    return directoryOf(host) + "/" + tests::kConfigurationFile;
}

std::string backupOf(const HostProcess& host) {
    return directoryOf(host) + "/backup/" + tests::kConfigurationFile;
}

std::string recordOf(const HostProcess& host) {
    return configurationOf(host) + ".record";
}

std::optional<tests::Services> servicesIn(const std::string& path) {
    const std::optional<std::string> bytes = tests::contentOf(path);
    if (!bytes) {
        return std::nullopt;
    }
    // Reading a damaged file would restore it, so a copy is read.
    const tests::TemporaryDirectory directory;
    const std::string copy = directory.path(tests::kConfigurationFile);
    tests::writeFile(copy, *bytes);
    qor::kevra::QvConfig<qor::kevra::NullMutex> config(copy.c_str());
    qor::kevra::ServiceInfoArray stored;
    // Nothing can be set in a file that was not loaded.
    if (!config.get(stored, "Address") && !config.set(stored, "Address")) {
        return std::nullopt;
    }
    tests::Services services;
    for (const qor::kevra::ServiceInfo& service : stored.services()) {
        services.emplace_back(service.id(), service.address());
    }
    return services;
}

std::vector<std::string> filesBelow(const std::string& directory) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        if (!entry.is_directory()) {
            files.push_back(entry.path().string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::map<std::string, std::string> traceOf(const std::string& directory) {
    std::map<std::string, std::string> trace;
    for (const std::string& path : filesBelow(directory)) {
        const struct stat status = tests::statusOf(path);
        trace[path] = tests::contentOf(path).value_or("") + " inode " +
                      std::to_string(status.st_ino) + " changed " +
                      std::to_string(status.st_ctim.tv_sec) + "." +
                      std::to_string(status.st_ctim.tv_nsec);
    }
    return trace;
}

std::vector<std::string> copiesSetAside(const HostProcess& host, const std::string& bytes) {
    std::vector<std::string> copies;
    for (const std::string& path : filesBelow(directoryOf(host))) {
        const bool isInUse =
            path == configurationOf(host) || path == backupOf(host) || path == recordOf(host);
        if (!isInUse && tests::contentOf(path) == bytes) {
            copies.push_back(path);
        }
    }
    return copies;
}

}  // namespace qv::host
