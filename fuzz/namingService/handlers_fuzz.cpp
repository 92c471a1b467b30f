// Fuzzes sequences of calls to the plug-in.

#include <cstddef>
#include <cstdint>

#include "namingService/HandlerProperties.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qv::fuzz::checkHandlerProperties(data, size);
    return 0;
}
