#include "runtime/Checks.h"

#include <google/protobuf/stubs/logging.h>

#include <cstdlib>

namespace qor::kevra::wire {

void failCheck(const char* condition) noexcept {
    try {
        GOOGLE_LOG(FATAL) << "CHECK failed: " << condition << ": ";
    } catch (...) {
        // The runtime reports a fatal message and then throws; it must not get further than this.
    }
    std::abort();
}

}  // namespace qor::kevra::wire
