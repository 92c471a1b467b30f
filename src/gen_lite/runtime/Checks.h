// Fatal checks: a message that is used against its contract stops the process, in every build.
//
// What happened goes to the Protocol Buffers runtime's log handler, standard error unless the host
// set another, as "CHECK failed: (index) < (size()): ", and then the process aborts. A host must
// not be able to go on, by catching something, with a message whose state nobody vouches for.
#ifndef QV_GEN_LITE_RUNTIME_CHECKS_H
#define QV_GEN_LITE_RUNTIME_CHECKS_H

namespace qor::kevra::wire {

// Reports "CHECK failed: <condition>: " and aborts.
[[noreturn]] void failCheck(const char* condition) noexcept;

// The contract of every accessor that takes an index.
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
