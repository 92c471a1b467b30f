// Fuzzes strings that are created from bytes and from code units.

#include <cstddef>
#include <cstdint>

#include "CoreFoundation/StringProperties.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qv::fuzz::checkStringProperties(data, size);
    return 0;
}
