// The commands of qvhost, each of which adds itself to the command line.
#ifndef QVHOST_CLI_SUBCOMMANDS_H
#define QVHOST_CLI_SUBCOMMANDS_H

#include "cli/CommandLine.h"

namespace qv::host {

// These load the plug-in.
void addInit(CommandLine& line);
void addInfo(CommandLine& line);

// The resident host.
void addServe(CommandLine& line);

// These ask the resident host; list can do either.
void addRegister(CommandLine& line);
void addUnregister(CommandLine& line);
void addList(CommandLine& line);
void addLevel(CommandLine& line);
void addImport(CommandLine& line);
void addExport(CommandLine& line);
void addPing(CommandLine& line);

}  // namespace qv::host

#endif  // QVHOST_CLI_SUBCOMMANDS_H
