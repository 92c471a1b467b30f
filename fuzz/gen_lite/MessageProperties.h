// What must hold of every message type for every input, however damaged. The fuzz target looks for
// an input for which it does not; the tests hold the inputs that are known to it.
#ifndef QV_FUZZ_MESSAGE_PROPERTIES_H
#define QV_FUZZ_MESSAGE_PROPERTIES_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace qv::fuzz {

// The number of message types.
std::size_t messageTypeCount();

// The index of a type by its name without the package; messageTypeCount() when there is none.
std::size_t messageTypeIndex(const std::string& name);

// Parses the bytes as a message of the type and checks that serialising and parsing again gives the
// same message, that copies and merges agree with it, that its size is what it says, and that every
// road into a message leaves the same. Aborts, saying what did not hold, otherwise.
void checkMessageProperties(std::size_t type, const std::uint8_t* data, std::size_t size);

// The same with the type in the first byte.
void checkMessageProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_MESSAGE_PROPERTIES_H
