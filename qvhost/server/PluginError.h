// SPDX-License-Identifier: Apache-2.0

// Tells a person in one line what was tried with the plug-in and why it failed.
#ifndef QVHOST_SERVER_PLUGIN_ERROR_H
#define QVHOST_SERVER_PLUGIN_ERROR_H

#include <stdexcept>

namespace qv::host {

class PluginError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The plug-in's table has no such command.
class UnknownCommandError : public PluginError {
  public:
    using PluginError::PluginError;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_PLUGIN_ERROR_H
