// Scripts of the host.

#include <cstddef>
#include <cstdint>

#include "host/ScriptProperties.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qv::fuzz::checkScriptProperties(data, size);
    return 0;
}
