// SPDX-License-Identifier: Apache-2.0

// Checks that the client library reads whatever a host sends without harm, and reads it right. The
// fuzz target looks for an input that breaks a property. The tests check known inputs.
#ifndef QV_FUZZ_CLIENT_MESSAGE_PROPERTIES_H
#define QV_FUZZ_CLIENT_MESSAGE_PROPERTIES_H

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {

// What the first byte of an input selects. Every other byte selects an event.
enum class HostMessage : std::uint8_t { Event = 'e', Services = 's', Hello = 'h', Status = 't' };

// Parses the bytes after the first one as the library does. Checks that what the library takes
// satisfies its rules, and that it reads the same from a message that says the same. Otherwise
// prints what does not hold, and aborts.
void checkClientMessages(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_CLIENT_MESSAGE_PROPERTIES_H
