// SPDX-License-Identifier: Apache-2.0

// Hashes the contents of objects.
//
// The hash is SipHash-1-3 with a new key in each process. The author of a document cannot know
// which dictionary keys collide, so no document can make a dictionary slow.
#ifndef COREFOUNDATION_HASH_H
#define COREFOUNDATION_HASH_H

#include <CoreFoundation/CFBase.h>

#include <cstddef>
#include <cstdint>

namespace cf {

CFHashCode hashBytes(const void* bytes, std::size_t count);

inline CFHashCode hashWord(std::uint64_t word) {
    return hashBytes(&word, sizeof word);
}

}  // namespace cf

#endif  // COREFOUNDATION_HASH_H
