// SPDX-License-Identifier: Apache-2.0

// Checks requests before they change the directory. The plug-in takes any bytes for an address and
// then saves nothing any more, for anybody. So the host refuses what the file cannot hold.
#ifndef QVHOST_SERVER_DOOR_H
#define QVHOST_SERVER_DOOR_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ServiceAddress.h"
#include "server/Snapshot.h"

namespace qv::host {

constexpr std::size_t kMostServices = 100'000;  // of the directory, and of a request
constexpr std::size_t kMostAddressBytes = std::size_t{16} * 1024 * 1024;  // of the directory

// The result of a command: a code of QvPlugin.h or QvFrame.h, and the bytes of the answer. If the
// code is one of the host's own, the bytes are a text for people.
struct Outcome {
    uint32_t code = 0;
    std::string bytes;
};

// What a request wants to change, in its order. A later edit of a service replaces an earlier one.
struct Change {
    struct Edit {
        int32_t id = 0;
        std::string address;
    };

    bool isRegistration = true;  // otherwise the services are withdrawn, and have no addresses
    std::vector<Edit> edits;
};

// Read the input of the commands QV_COMMAND_REGISTER_SERVICES and QV_COMMAND_UNREGISTER_SERVICES.
// Return QV_OK and set `change`. Otherwise return the answer that refuses the request, and leave
// `change` alone:
//   - QV_ERROR_ARGUMENT without a text if the bytes do not parse to their end;
//   - QV_HOST_ERROR_REFUSED with a text if the request names more than kMostServices services. A
//     request of a few bytes for each service would take much more memory than it is long;
//   - QV_HOST_ERROR_REFUSED with a text that names the service if an address cannot be kept.
// A service without an identifier has the identifier 0, as in the plug-in. Throw std::bad_alloc.
Outcome readRegistration(std::string_view input, Change& change);
Outcome readWithdrawal(std::string_view input, Change& change);

// Tells whether the change would leave the snapshot as it is.
bool changesNothing(const Change& change, const Snapshot& snapshot);

// Makes the change in the next snapshot and returns QV_OK. Refuses the whole change with
// QV_HOST_ERROR_REFUSED if the directory would exceed its bounds. A directory that exceeds them
// already may only shrink. Throws std::bad_alloc, and part of the change may be made then.
Outcome apply(const Change& change, NextSnapshot& next);

}  // namespace qv::host

#endif  // QVHOST_SERVER_DOOR_H
