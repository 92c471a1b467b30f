// SPDX-License-Identifier: Apache-2.0

// Raises the number of descriptors that the host may have open, and bounds the clients by it.
#ifndef QVHOST_SERVER_DESCRIPTOR_LIMIT_H
#define QVHOST_SERVER_DESCRIPTOR_LIMIT_H

#include <cstddef>

namespace qv::host {

// Raises the limit as far as an ordinary process may, and returns it.
std::size_t raiseDescriptorLimit();

// Returns how many clients fit the limit: `wanted`, or as many as leave descriptors for the threads
// and for everything else that the host opens. Throws std::runtime_error, with a line for a person,
// if not even one client fits.
std::size_t clientsWithin(std::size_t limit, std::size_t threads, std::size_t wanted);

}  // namespace qv::host

#endif  // QVHOST_SERVER_DESCRIPTOR_LIMIT_H
