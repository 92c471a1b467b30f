// SPDX-License-Identifier: Apache-2.0

// Checks properties of strings that hold for all bytes and all code units. The fuzz target looks
// for input that violates them. The tests check the known input.
#ifndef QV_FUZZ_STRING_PROPERTIES_H
#define QV_FUZZ_STRING_PROPERTIES_H

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {

// Creates strings from the bytes in every encoding, and from the bytes as code units. Checks that
// their contents are those that a decoder of our own finds, that every accessor returns them, and
// that comparison, equality and hashes agree. Aborts with a message if a property does not hold.
void checkStringProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_STRING_PROPERTIES_H
