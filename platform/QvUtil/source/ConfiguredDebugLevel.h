// SPDX-License-Identifier: Apache-2.0

// The level that a configuration file sets for a module's log.
#ifndef QV_UTIL_CONFIGURED_DEBUG_LEVEL_H
#define QV_UTIL_CONFIGURED_DEBUG_LEVEL_H

namespace qv::util {

// "DebugLevel" in the named configuration file, as QvInitDebugByConfig() describes it; `configName`
// may be null.
int configuredDebugLevel(const char* configName) noexcept;

}  // namespace qv::util

#endif  // QV_UTIL_CONFIGURED_DEBUG_LEVEL_H
