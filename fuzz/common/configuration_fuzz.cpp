// Fuzzes a configuration file and its backup.

#include <cstddef>
#include <cstdint>

#include "common/ConfigurationProperties.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qv::fuzz::checkConfigurationProperties(data, size);
    return 0;
}
