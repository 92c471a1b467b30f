// SPDX-License-Identifier: Apache-2.0

// Says what is wrong with the command line, as one line for a person.
#ifndef QVHOST_CLI_USAGE_ERROR_H
#define QVHOST_CLI_USAGE_ERROR_H

#include <stdexcept>

namespace qv::host {

class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace qv::host

#endif  // QVHOST_CLI_USAGE_ERROR_H
