// SPDX-License-Identifier: Apache-2.0

// Makes a directory for the configuration and the log and names it in the environment while the
// object lives. A test or a fuzz target then does not use the system's directories.
#ifndef QV_TESTS_SCRATCH_DIRECTORIES_H
#define QV_TESTS_SCRATCH_DIRECTORIES_H

#include <string>

#include "support/EnvironmentVariable.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {

class ScratchDirectories {
  public:
    // Returns the directory of the configuration and the log.
    const std::string& path() const { return directory_.path(); }
    std::string path(const std::string& name) const { return directory_.path(name); }

  private:
    TemporaryDirectory directory_;
    EnvironmentVariable configDirectory_{"QV_CONFIG_DIR", directory_.path()};
    EnvironmentVariable logDirectory_{"QV_LOG_DIR", directory_.path()};
};

}  // namespace qv::tests

#endif  // QV_TESTS_SCRATCH_DIRECTORIES_H
