// SPDX-License-Identifier: Apache-2.0

// Names the users of the clients in tests.
#ifndef QVHOST_USERS_H
#define QVHOST_USERS_H

#include <sys/types.h>

namespace qv::host {

inline constexpr uid_t kRoot = 0;
// The host's own user, where a test does not run a host.
inline constexpr uid_t kOwner = 500;
inline constexpr uid_t kOther = 60'001;
inline constexpr uid_t kAnother = 60'002;

}  // namespace qv::host

#endif  // QVHOST_USERS_H
