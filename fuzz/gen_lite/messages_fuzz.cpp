// Checks the properties of every message type. The first byte of an input selects the type, and the
// rest is parsed.

#include <cstddef>
#include <cstdint>

#include "gen_lite/MessageProperties.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qv::fuzz::checkMessageProperties(data, size);
    return 0;
}
