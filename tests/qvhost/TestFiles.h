// SPDX-License-Identifier: Apache-2.0

// Keeps the files of a test in a directory of its own. The destructor removes the directory.
#ifndef QVHOST_TEST_FILES_H
#define QVHOST_TEST_FILES_H

#include <string>

#include "support/TemporaryDirectory.h"

namespace qv::host {

class TestFiles {
  public:
    // Returns the path of a file or directory, which need not exist.
    std::string path(const std::string& name) const { return directory_.path(name); }

    // Writes a file and returns its path. Throws std::system_error.
    std::string write(const std::string& name, const std::string& content) const;

  private:
    tests::TemporaryDirectory directory_;
};

// Returns the whole file, or an empty text if there is none.
std::string readFile(const std::string& path);

}  // namespace qv::host

#endif  // QVHOST_TEST_FILES_H
