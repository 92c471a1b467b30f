// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/Environment.h"

#include <cstdlib>

#ifdef __APPLE__
#include <unistd.h>
#endif

namespace qv::system {

const char* environmentValue(const char* name) {
#ifdef __APPLE__
    const char* const value = ::issetugid() != 0 ? nullptr : std::getenv(name);
#else
    const char* const value = ::secure_getenv(name);
#endif
    return value != nullptr && *value != '\0' ? value : nullptr;
}

}  // namespace qv::system
