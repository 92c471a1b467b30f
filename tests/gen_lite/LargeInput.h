// SPDX-License-Identifier: Apache-2.0

// Serialised ServiceInfoArrays around the 64 MiB after which a parse reads no further.
#ifndef QV_TESTS_LARGE_INPUT_H
#define QV_TESTS_LARGE_INPUT_H

#include <cstddef>
#include <string>

namespace qv::tests {

constexpr std::size_t kReadBytes = 67'108'864;

// Returns an array of the service 1 without an address, an unknown field, and `end`. The first
// `before` bytes of `end` are the last ones that a parse reads.
inline std::string largeInput(std::size_t before, const std::string& end) {
    const std::string service("\x0a\x02\x08\x01", 4);
    std::string bytes = service + '\x1a';
    std::size_t length = kReadBytes - before - service.size() - 5;
    for (int index = 0; index < 3; ++index, length >>= 7) {
        bytes += static_cast<char>(length | 0x80);
    }
    bytes += static_cast<char>(length);
    bytes.resize(kReadBytes - before);
    return bytes + end;
}

}  // namespace qv::tests

#endif  // QV_TESTS_LARGE_INPUT_H
