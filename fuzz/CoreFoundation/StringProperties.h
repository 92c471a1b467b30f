// What must hold of strings for all bytes and all code units. The fuzz target looks for some for
// which it does not; the tests hold those that are known to it.
#ifndef QV_FUZZ_STRING_PROPERTIES_H
#define QV_FUZZ_STRING_PROPERTIES_H

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {

// Makes strings of the bytes in every encoding, and of the bytes taken as code units, and checks
// that what they hold is what a decoder of our own finds, that it comes back out, by every
// accessor, and that comparing, equality and hashes agree. Aborts, saying what did not hold,
// otherwise.
void checkStringProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_STRING_PROPERTIES_H
