// SPDX-License-Identifier: Apache-2.0

// Passes each input of a fuzz target to the check of its properties. The build defines
// QV_FUZZ_CHECK as the name of the check.

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {
void QV_FUZZ_CHECK(const std::uint8_t* data, std::size_t size);
}  // namespace qv::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qv::fuzz::QV_FUZZ_CHECK(data, size);
    return 0;
}
