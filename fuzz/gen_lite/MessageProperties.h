// SPDX-License-Identifier: Apache-2.0

// Checks properties that every message type has for every input, however damaged. The fuzz target
// looks for an input that breaks one. The tests check known inputs.
#ifndef QV_FUZZ_MESSAGE_PROPERTIES_H
#define QV_FUZZ_MESSAGE_PROPERTIES_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace qv::fuzz {

// Returns the number of message types.
std::size_t messageTypeCount();

// Returns the index of the type with this name without its package, or messageTypeCount() if no
// type has the name.
std::size_t messageTypeIndex(const std::string& name);

// Parses the bytes as a message of the type. Checks that serialising and parsing again gives the
// same message, that copies and merges equal it, that its size is right, and that every parse
// function gives the same message. Otherwise prints what does not hold, and aborts.
void checkMessageProperties(std::size_t type, const std::uint8_t* data, std::size_t size);

// Does the same, with the type in the first byte.
void checkMessageProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_MESSAGE_PROPERTIES_H
