// SPDX-License-Identifier: Apache-2.0

// Declares the subcommands of qvhost. Each adds itself to the command line.
#ifndef QVHOST_CLI_SUBCOMMANDS_H
#define QVHOST_CLI_SUBCOMMANDS_H

#include "cli/CommandLine.h"

namespace qv::host {

// These load the plug-in but do not start it.
void addInit(CommandLine& line);
void addInfo(CommandLine& line);

// This is the resident host.
void addServe(CommandLine& line);

// These ask the resident host. List can also read the configuration file.
void addRegister(CommandLine& line);
void addUnregister(CommandLine& line);
void addRun(CommandLine& line);
void addGet(CommandLine& line);
void addWait(CommandLine& line);
void addWatch(CommandLine& line);
void addList(CommandLine& line);
void addLevel(CommandLine& line);
void addImport(CommandLine& line);
void addExport(CommandLine& line);
void addPing(CommandLine& line);
void addStatus(CommandLine& line);
void addSync(CommandLine& line);

}  // namespace qv::host

#endif  // QVHOST_CLI_SUBCOMMANDS_H
