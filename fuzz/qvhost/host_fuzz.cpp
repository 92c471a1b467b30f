// Fuzzes sequences of requests to the resident host, of kills, and of changes to its files.

#include <cstddef>
#include <cstdint>

#include "qvhost/HostProperties.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qv::fuzz::checkHostProperties(data, size);
    return 0;
}
