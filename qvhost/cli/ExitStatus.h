// What qvhost exits with.
#ifndef QVHOST_CLI_EXIT_STATUS_H
#define QVHOST_CLI_EXIT_STATUS_H

namespace qv::host {

enum ExitStatus {
    kSuccess = 0,
    kFailure = 1,   // of the plug-in, a file, the connection or the output
    kWrongUse = 2,  // of the command line, or a mistake in a text that a person wrote
};

}  // namespace qv::host

#endif  // QVHOST_CLI_EXIT_STATUS_H
