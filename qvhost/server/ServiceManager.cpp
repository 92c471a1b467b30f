// SPDX-License-Identifier: Apache-2.0

#include "server/ServiceManager.h"

#include <fmt/format.h>
#include <systemd/sd-daemon.h>

#include <ctime>
#include <stdexcept>
#include <system_error>

namespace qv::host {

namespace {

constexpr int kKeepEnvironment = 0;

// Tells the manager a new state. Ignores a manager that does not listen.
void notify(const std::string& state) {
    static_cast<void>(sd_notify(kKeepEnvironment, state.c_str()));
}

}  // namespace

std::optional<int> ServiceManager::passedSocket() {
    constexpr int kUnsetEnvironment = 1;
    const int count = sd_listen_fds(kUnsetEnvironment);
    if (count < 0) {
        throw std::system_error(-count, std::generic_category(), "cannot take the socket passed");
    }
    if (count > 1) {
        throw std::runtime_error(fmt::format("{} sockets were passed, one is used", count));
    }
    return count == 0 ? std::nullopt : std::optional<int>(SD_LISTEN_FDS_START);
}

void ServiceManager::ready(const std::string& status) {
    notify("READY=1\nSTATUS=" + status);
}

void ServiceManager::reloading() {
    timespec now = {};
    static_cast<void>(clock_gettime(CLOCK_MONOTONIC, &now));
    notify(fmt::format("RELOADING=1\nMONOTONIC_USEC={}{:06}\nSTATUS=reloading", now.tv_sec,
                       now.tv_nsec / 1000));
}

void ServiceManager::stopping() {
    notify("STOPPING=1\nSTATUS=stopping");
}

void ServiceManager::status(const std::string& status) {
    notify("STATUS=" + status);
}

void ServiceManager::isAlive() {
    if (sd_watchdog_enabled(kKeepEnvironment, nullptr) > 0) {
        notify("WATCHDOG=1");
    }
}

}  // namespace qv::host
