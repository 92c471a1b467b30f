// SPDX-License-Identifier: Apache-2.0

// Gives back the memory that CoreFoundation keeps for later objects.
#ifndef QV_CF_MEMORY_H
#define QV_CF_MEMORY_H

#ifdef QV_COREFOUNDATION_BUNDLED
extern "C" void QvCFFreeKeptObjects();
#endif

namespace qor::kevra {

// Frees what our CoreFoundation layer keeps of destroyed objects. Does nothing with another
// CoreFoundation. Any thread may call this.
inline void freeKeptObjects() noexcept {
#ifdef QV_COREFOUNDATION_BUNDLED
    QvCFFreeKeptObjects();
#endif
}

}  // namespace qor::kevra

#endif  // QV_CF_MEMORY_H
