// SPDX-License-Identifier: Apache-2.0

// Formats the status of a resident host: lines for people, JSON for programs. The rules for bytes
// that are not UTF-8, or that drive a terminal, are those of Output.h.
#ifndef QVHOST_CLI_STATUS_OUTPUT_H
#define QVHOST_CLI_STATUS_OUTPUT_H

#include <QvClient.h>

#include <string>

#include "cli/Output.h"

namespace qv::host {

// Formats the status as a table, or as one JSON object on one line. In JSON, times are seconds
// since 1970-01-01 00:00 UTC, and what does not apply is null. Requests and refusals have names;
// a code without a name stands for itself.
std::string formatStatus(const client::HostStatus& status, Format format);

}  // namespace qv::host

#endif  // QVHOST_CLI_STATUS_OUTPUT_H
