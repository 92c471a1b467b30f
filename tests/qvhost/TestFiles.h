// A test's own files, in a directory that is gone when the object goes.
#ifndef QVHOST_TEST_FILES_H
#define QVHOST_TEST_FILES_H

#include <string>

#include "support/TemporaryDirectory.h"

namespace qv::host {

class TestFiles {
  public:
    // The path of a file or directory, existing or not.
    std::string path(const std::string& name) const { return directory_.path(name); }

    // Writes a file and returns its path. Throws std::system_error.
    std::string write(const std::string& name, const std::string& content) const;

  private:
    tests::TemporaryDirectory directory_;
};

// The whole file; empty when there is none.
std::string readFile(const std::string& path);

}  // namespace qv::host

#endif  // QVHOST_TEST_FILES_H
