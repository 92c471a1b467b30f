// SPDX-License-Identifier: Apache-2.0

#include <QvSystem/Environment.h>

#include "QvClient.h"

namespace qv::client {

std::string defaultSocketPath() {
    const char* const directory = system::environmentValue("QV_RUN_DIR");
    return std::string(directory == nullptr ? QV_DEFAULT_RUN_DIR : directory) +
           "/namingService.sock";
}

}  // namespace qv::client
