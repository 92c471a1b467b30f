// SPDX-License-Identifier: Apache-2.0

// Reads and writes requests and answers without the library's message classes. It follows the same
// rules as the handlers, in slow and simple code, so that the fuzz targets can compare both.
#ifndef QV_FUZZ_WIRE_FORMAT_H
#define QV_FUZZ_WIRE_FORMAT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "namingService/DirectoryModel.h"

namespace qv::fuzz {

// Returns the services of a request up to the first fault. The last service holds what came before
// the fault.
std::vector<StoredService> servicesIn(std::string_view request);

// Returns the level of a set-debug-level request, or 0 if it has none.
std::int32_t debugLevelIn(std::string_view request);

// Returns the encoding of a service with an identifier and an address, as an element of a request
// or an answer.
std::string encodedService(std::int32_t id, std::string_view address);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_WIRE_FORMAT_H
