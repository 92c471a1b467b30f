// SPDX-License-Identifier: Apache-2.0

// Defines the exit status of qvhost.
#ifndef QVHOST_CLI_EXIT_STATUS_H
#define QVHOST_CLI_EXIT_STATUS_H

namespace qv::host {

enum ExitStatus {
    kSuccess = 0,
    kFailure = 1,   // the plug-in, a file, the connection or the output failed
    kWrongUse = 2,  // a mistake in the command line or in a text that a person wrote
};

}  // namespace qv::host

#endif  // QVHOST_CLI_EXIT_STATUS_H
