#include "QvClient.h"
#include "environment.h"

namespace qv::client {

std::string defaultSocketPath() {
    const char* const directory = util::environmentValue("QV_RUN_DIR");
    return std::string(directory == nullptr ? QV_DEFAULT_RUN_DIR : directory) +
           "/namingService.sock";
}

}  // namespace qv::client
