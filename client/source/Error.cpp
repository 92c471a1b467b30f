// SPDX-License-Identifier: Apache-2.0

#include "QvClient.h"

namespace qv::client {

Error::Error(Kind kind, int32_t code, const std::string& text)
    : std::runtime_error(text), kind_(kind), code_(code) {}

// Defined here, so that only this library holds the type information of the class.
Error::~Error() = default;

}  // namespace qv::client
