// What must hold of the property-list functions for every document, however damaged. The fuzz
// target looks for bytes for which it does not; the tests hold the documents that are known to it.
#ifndef QV_FUZZ_PROPERTY_LIST_PROPERTIES_H
#define QV_FUZZ_PROPERTY_LIST_PROPERTIES_H

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {

// Reads the bytes as a document and checks that every way of reading agrees, that a failure says
// why, that what is valid is what is written, and that what is written reads back as the same and
// is written the same again, but for what XML cannot say. Aborts, saying what did not hold,
// otherwise.
void checkPropertyListProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_PROPERTY_LIST_PROPERTIES_H
