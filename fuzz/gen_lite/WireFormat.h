// The bytes of requests and answers, read and written without the library's message classes: slow
// and plain, by the rules that the handlers follow.
#ifndef QV_FUZZ_WIRE_FORMAT_H
#define QV_FUZZ_WIRE_FORMAT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/DirectoryModel.h"

namespace qv::fuzz {

// The services of a request, as far as it can be read: the last is as much as was there of it.
std::vector<tests::StoredService> servicesIn(std::string_view request);

// The level of a set-debug-level request; 0 where there is none.
std::int32_t debugLevelIn(std::string_view request);

// The one way to write a service with an identifier and an address, as an element of a request or
// of an answer.
std::string encodedService(std::int32_t id, std::string_view address);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_WIRE_FORMAT_H
