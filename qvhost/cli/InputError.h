// SPDX-License-Identifier: Apache-2.0

// Says what is wrong with a text that a person wrote, as one line for that person.
#ifndef QVHOST_CLI_INPUT_ERROR_H
#define QVHOST_CLI_INPUT_ERROR_H

#include <stdexcept>

namespace qv::host {

class InputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace qv::host

#endif  // QVHOST_CLI_INPUT_ERROR_H
