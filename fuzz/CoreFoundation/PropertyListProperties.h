// SPDX-License-Identifier: Apache-2.0

// Checks properties of the property-list functions that hold for every document, however damaged.
// The fuzz target looks for bytes that violate them. The tests check the known documents.
#ifndef QV_FUZZ_PROPERTY_LIST_PROPERTIES_H
#define QV_FUZZ_PROPERTY_LIST_PROPERTIES_H

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {

// Reads the bytes as a document and checks these properties: all ways of reading agree, a failure
// has a reason, and exactly the valid trees are written. A written tree is read back as the same
// tree and is written as the same document, except for values that XML cannot express. Aborts with
// a message if a property does not hold.
void checkPropertyListProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_PROPERTY_LIST_PROPERTIES_H
