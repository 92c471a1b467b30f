// Fuzzes property-list documents of every kind.

#include <cstddef>
#include <cstdint>

#include "CoreFoundation/PropertyListProperties.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qv::fuzz::checkPropertyListProperties(data, size);
    return 0;
}
