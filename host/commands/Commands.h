// The commands of qvhost, each of which adds itself to the command line.
#ifndef QVHOST_COMMANDS_H
#define QVHOST_COMMANDS_H

#include "CommandLine.h"

namespace qv::host {

// These load the plug-in.
void addInitCommand(CommandLine& line);
void addInfoCommand(CommandLine& line);

// The resident host.
void addServeCommand(CommandLine& line);

// These ask the resident host; list can do either.
void addRegisterCommand(CommandLine& line);
void addUnregisterCommand(CommandLine& line);
void addListCommand(CommandLine& line);
void addLevelCommand(CommandLine& line);
void addImportCommand(CommandLine& line);
void addExportCommand(CommandLine& line);
void addPingCommand(CommandLine& line);

}  // namespace qv::host

#endif  // QVHOST_COMMANDS_H
