// SPDX-License-Identifier: Apache-2.0

// Talks to the service manager that started the host, if there is one.
#ifndef QVHOST_SERVER_SERVICE_MANAGER_H
#define QVHOST_SERVER_SERVICE_MANAGER_H

#include <optional>
#include <string>

namespace qv::host {

class ServiceManager {
  public:
    // Returns the socket that the manager passed, if any. Throws std::runtime_error for several.
    static std::optional<int> passedSocket();

    // `status` is a line for a person.
    static void ready(const std::string& status);
    static void reloading();
    static void stopping();
    static void status(const std::string& status);

    // Tells that the host still answers. A manager that watches the host restarts it if it hears
    // nothing for too long.
    static void isAlive();
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_SERVICE_MANAGER_H
