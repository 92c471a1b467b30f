// What is wrong with a script's text, as one line for a person. Never about executing it.
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
