// SPDX-License-Identifier: Apache-2.0

// Does nothing, for systems without systemd.
#include "server/ServiceManager.h"

namespace qv::host {

std::optional<int> ServiceManager::passedSocket() {
    return std::nullopt;
}

void ServiceManager::ready(const std::string& /*status*/) {}
void ServiceManager::reloading() {}
void ServiceManager::stopping() {}
void ServiceManager::status(const std::string& /*status*/) {}
void ServiceManager::isAlive() {}

}  // namespace qv::host
