// SPDX-License-Identifier: Apache-2.0

// Finds and reads the files that a host keeps in its configuration directory.
#ifndef QVHOST_HOST_FILES_H
#define QVHOST_HOST_FILES_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qvhost/HostProcess.h"
#include "support/LoadedPlugin.h"

namespace qv::host {

std::string directoryOf(const HostProcess& host);
std::string configurationOf(const HostProcess& host);
std::string backupOf(const HostProcess& host);
std::string recordOf(const HostProcess& host);

// Returns the services that the plug-in would load from a file. Returns nothing if the file is
// missing or no property list with a dictionary as its root.
std::optional<tests::Services> servicesIn(const std::string& path);

// Returns the paths of all files below the directory, in order.
std::vector<std::string> filesBelow(const std::string& directory);

// Returns what a second host must not touch: path, content, inode and time of the last change of
// every file below the directory.
std::map<std::string, std::string> traceOf(const std::string& directory);

// Returns the files of the host that hold these bytes, without the configuration, its backup and
// the record.
std::vector<std::string> copiesSetAside(const HostProcess& host, const std::string& bytes);

}  // namespace qv::host

#endif  // QVHOST_HOST_FILES_H
