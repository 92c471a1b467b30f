// Raises the number of descriptors that the host may have open.
#ifndef QVHOST_SERVER_DESCRIPTOR_LIMIT_H
#define QVHOST_SERVER_DESCRIPTOR_LIMIT_H

#include <cstddef>

namespace qv::host {

// Raises the limit as far as an ordinary process may, and returns it.
std::size_t raiseDescriptorLimit();

}  // namespace qv::host

#endif  // QVHOST_SERVER_DESCRIPTOR_LIMIT_H
