// SPDX-License-Identifier: Apache-2.0

// Gives memory that is free again back to the system. Otherwise the host would keep what a few
// large requests once took.
#ifndef QVHOST_SERVER_HEAP_MEMORY_H
#define QVHOST_SERVER_HEAP_MEMORY_H

namespace qv::host {

// Has the allocator give large pieces back to the system as soon as they are free. Call it before
// the first thread starts.
void giveBackLargePieces();

// Gives the memory of small pieces that are free back to the system. May take milliseconds.
void giveBackFreeMemory();

}  // namespace qv::host

#endif  // QVHOST_SERVER_HEAP_MEMORY_H
