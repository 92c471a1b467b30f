// Every message type: the first byte of an input says which, the rest is parsed.

#include <cstddef>
#include <cstdint>

#include "gen_lite/MessageProperties.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qv::fuzz::checkMessageProperties(data, size);
    return 0;
}
