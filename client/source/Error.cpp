#include "QvClient.h"

namespace qv::client {

Error::Error(Kind kind, int32_t code, const std::string& text)
    : std::runtime_error(text), kind_(kind), code_(code) {}

// Here, so that the class's type is this library's alone.
Error::~Error() = default;

}  // namespace qv::client
