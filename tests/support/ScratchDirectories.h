// Directories for the configuration and the log, in the environment while the object lives, so that
// what a test loads stays out of the system's own.
#ifndef QV_TESTS_SCRATCH_DIRECTORIES_H
#define QV_TESTS_SCRATCH_DIRECTORIES_H

#include <string>

#include "support/EnvironmentVariable.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {

class ScratchDirectories {
  public:
    // The directory of both.
    const std::string& path() const { return directory_.path(); }
    std::string path(const std::string& name) const { return directory_.path(name); }

  private:
    TemporaryDirectory directory_;
    EnvironmentVariable configDirectory_{"QV_CONFIG_DIR", directory_.path()};
    EnvironmentVariable logDirectory_{"QV_LOG_DIR", directory_.path()};
};

}  // namespace qv::tests

#endif  // QV_TESTS_SCRATCH_DIRECTORIES_H
