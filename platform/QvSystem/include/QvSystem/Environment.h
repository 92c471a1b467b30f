// SPDX-License-Identifier: Apache-2.0

// Looks up settings that the environment overrides.
#ifndef QV_SYSTEM_ENVIRONMENT_H
#define QV_SYSTEM_ENVIRONMENT_H

namespace qv::system {

// Returns the value of the variable, or null if it is unset or empty. Always returns null in a
// set-id process, whose environment belongs to a less privileged caller.
const char* environmentValue(const char* name);

}  // namespace qv::system

#endif  // QV_SYSTEM_ENVIRONMENT_H
