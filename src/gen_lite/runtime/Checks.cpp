// SPDX-License-Identifier: Apache-2.0

#include "runtime/Checks.h"

#include <google/protobuf/stubs/logging.h>

#include <cstdlib>

namespace qor::kevra::wire {

void failCheck(const char* condition) noexcept {
    try {
        GOOGLE_LOG(FATAL) << "CHECK failed: " << condition << ": ";
    } catch (...) {
        // The runtime throws after it has reported a fatal message. The host must not catch that.
    }
    std::abort();
}

}  // namespace qor::kevra::wire
