// SPDX-License-Identifier: Apache-2.0

// Names one service of the directory. The type is the client library's.
#ifndef QVHOST_SERVER_SERVICE_H
#define QVHOST_SERVER_SERVICE_H

#include <QvClient.h>

namespace qv::host {

using client::Service;

}  // namespace qv::host

#endif  // QVHOST_SERVER_SERVICE_H
