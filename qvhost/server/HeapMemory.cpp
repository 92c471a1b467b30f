// SPDX-License-Identifier: Apache-2.0

#include "server/HeapMemory.h"

#include <QvCFMemory.h>

#include <cstdlib>  // defines __GLIBC__

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace qv::host {

void giveBackLargePieces() {
#ifdef __GLIBC__
    // This is the allocator's own bound at the start. Setting it keeps the allocator from raising
    // it with each large piece that it frees.
    constexpr int kLarge = 128 * 1024;
    static_cast<void>(mallopt(M_MMAP_THRESHOLD, kLarge));
#endif
}

void giveBackFreeMemory() {
    // Small objects of a freed tree lie between its texts, whose pages could not go back.
    qor::kevra::freeKeptObjects();
#ifdef __GLIBC__
    static_cast<void>(malloc_trim(0));
#endif
}

}  // namespace qv::host
