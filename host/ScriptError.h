// What is wrong with a text that a person wrote, a script or a number, as one line for a person.
// Never about executing it.
#ifndef QVHOST_SCRIPT_ERROR_H
#define QVHOST_SCRIPT_ERROR_H

#include <stdexcept>

namespace qv::host {

class ScriptError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace qv::host

#endif  // QVHOST_SCRIPT_ERROR_H
