// SPDX-License-Identifier: Apache-2.0

// Defines the fatal checks. A message that is used against its contract ends the process in every
// build.
//
// A failed check reports a text such as "CHECK failed: (index) < (size()): " and aborts. The text
// goes to the log handler of the Protocol Buffers runtime, which writes to standard error unless
// the host has set another. The host cannot catch the failure, because the message is no longer
// reliable.
#ifndef QV_GEN_LITE_RUNTIME_CHECKS_H
#define QV_GEN_LITE_RUNTIME_CHECKS_H

namespace qor::kevra::wire {

// Reports "CHECK failed: <condition>: " and aborts.
[[noreturn]] void failCheck(const char* condition) noexcept;

// Ends the process unless the index is at least 0 and below the size. Every accessor that takes an
// index calls this function.
inline void checkIndex(int index, int size) {
    if (index >= size) {
        failCheck("(index) < (size())");
    }
    if (index < 0) {
        failCheck("(index) >= (0)");
    }
}

}  // namespace qor::kevra::wire

#endif  // QV_GEN_LITE_RUNTIME_CHECKS_H
