// One service of the directory, as the host's own code passes it about: the clients' type.
#ifndef QVHOST_CLI_SERVICE_H
#define QVHOST_CLI_SERVICE_H

#include <QvClient.h>

namespace qv::host {

using client::Service;

}  // namespace qv::host

#endif  // QVHOST_CLI_SERVICE_H
