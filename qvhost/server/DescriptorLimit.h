// How many files and sockets the host may have open at once.
#ifndef QVHOST_SERVER_DESCRIPTOR_LIMIT_H
#define QVHOST_SERVER_DESCRIPTOR_LIMIT_H

#include <cstddef>

namespace qv::host {

// Raises the limit as far as the system lets an ordinary process, and returns it.
std::size_t raiseDescriptorLimit();

}  // namespace qv::host

#endif  // QVHOST_SERVER_DESCRIPTOR_LIMIT_H
