// SPDX-License-Identifier: Apache-2.0

// Holds the limits of documents. Anybody can write a document, so no document may make the process
// run out of stack, memory or time.
#ifndef COREFOUNDATION_LIMITS_H
#define COREFOUNDATION_LIMITS_H

#include <cstddef>
#include <cstdint>

namespace cf {

// The depth to which containers may be nested. The readers refuse a deeper document, and a deeper
// tree is neither valid nor written.
constexpr std::size_t kMaximumNesting = 1024;

// The number of containers that may be around a value in an old-style document. The functions that
// read such a document call each other once for each container.
constexpr std::size_t kMaximumOldStyleNesting = 512;

// The number of bytes that a written document may have. Every reader refuses a document whose tree
// would take more, and the writer writes no such tree. Callers keep the length of a document in 32
// bits, and a host has to hold the document and its tree in memory at once.
constexpr std::size_t kMostWritten = std::size_t{1} << 29;
static_assert(kMostWritten <= INT32_MAX);

// The number of references that any binary document may have. A larger document may have as many
// references as bytes.
constexpr std::size_t kReferencesAlwaysAllowed = std::size_t{1} << 17;

}  // namespace cf

#endif  // COREFOUNDATION_LIMITS_H
