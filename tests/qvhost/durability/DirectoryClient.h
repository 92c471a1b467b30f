// SPDX-License-Identifier: Apache-2.0

// A client of a host: registers, withdraws and lists services.
#ifndef QVHOST_DIRECTORY_CLIENT_H
#define QVHOST_DIRECTORY_CLIENT_H

#include <QvFrame.h>
#include <QvPlugin.h>

#include <cstdint>
#include <string>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "support/LoadedPlugin.h"

namespace qv::host {

// The codes of answers, with the type of RawAnswer::code.
constexpr uint32_t kDone = QV_OK;
constexpr uint32_t kRefused = QV_HOST_ERROR_REFUSED;
constexpr uint32_t kNotKept = QV_HOST_ERROR_NOT_KEPT;

class DirectoryClient {
  public:
    explicit DirectoryClient(const HostProcess& host) : client_(host.socket()) {}

    // Each returns the answer of the host. If there is none, the test fails, and the code is none
    // that a host gives.
    RawAnswer ask(uint32_t command, const std::string& input = "") const;
    RawAnswer registerServices(const tests::Services& services) const;
    RawAnswer withdraw(const std::vector<int32_t>& ids) const;
    RawAnswer sync() const { return ask(QV_HOST_COMMAND_SYNC); }
    RawAnswer status() const { return ask(QV_HOST_COMMAND_STATUS); }

    // Returns the services, ascending by identifier. The test fails if the host does not list them.
    tests::Services list() const;

    // Repeats the registration until the host answers that it is kept. Returns false if the host
    // does not say so in two minutes.
    bool registerUntilKept(const tests::Services& services) const;

    const RawClient& raw() const { return client_; }

  private:
    RawClient client_;
};

// Returns `count` services, ascending by identifier, from this identifier on.
tests::Services manyServices(int32_t first, int32_t count);

// Returns the services in ascending order. A later service replaces an earlier one.
tests::Services merged(const tests::Services& services, const tests::Services& further);

// Kills the host and starts it again. Returns false if it does not start.
bool killAndStart(HostProcess& host);

// Ends the host with SIGTERM. Returns its exit status.
int stop(HostProcess& host);

}  // namespace qv::host

#endif  // QVHOST_DIRECTORY_CLIENT_H
