// Looks for files of services that break the properties.

#include <cstddef>
#include <cstdint>

#include "qvhost/ServiceFileProperties.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qv::fuzz::checkServiceFileProperties(data, size);
    return 0;
}
