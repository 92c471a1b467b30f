// Settings that the environment overrides.
#ifndef QV_UTIL_ENVIRONMENT_H
#define QV_UTIL_ENVIRONMENT_H

namespace qv::util {

// The variable's value; null when it is unset or empty, and always in a set-id process, whose
// environment belongs to a less privileged caller.
const char* environmentValue(const char* name);

}  // namespace qv::util

#endif  // QV_UTIL_ENVIRONMENT_H
