// The system's service manager, where one started the host. What it is told goes nowhere else.
#ifndef QVHOST_SERVER_SERVICE_MANAGER_H
#define QVHOST_SERVER_SERVICE_MANAGER_H

#include <optional>
#include <string>

namespace qv::host {

class ServiceManager {
  public:
    // The socket that it passed, if any. Throws std::runtime_error when it passed several.
    static std::optional<int> passedSocket();

    // `status` is a line for a person.
    static void ready(const std::string& status);
    static void reloading();
    static void stopping();
    static void status(const std::string& status);
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_SERVICE_MANAGER_H
