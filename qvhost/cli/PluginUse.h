// SPDX-License-Identifier: Apache-2.0

// Loads the plug-in that the options of the command line name.
#ifndef QVHOST_CLI_PLUGIN_USE_H
#define QVHOST_CLI_PLUGIN_USE_H

#include <memory>
#include <string>

#include "cli/CommandLine.h"
#include "server/Plugin.h"

namespace qv::host {

// Names the directories to the plug-in in the environment. Must run before the plug-in is loaded.
void setDirectories(const CommonOptions& options);

// Does the same. Throws UsageError if the directory of the configuration is missing: the plug-in
// does not make it, and does not tell that it cannot save.
void setExistingDirectories(const CommonOptions& options);

bool isDirectory(const std::string& path);

// Loads the plug-in but does not initialise it. Throws PluginError.
std::unique_ptr<Plugin> loadPlugin(const CommonOptions& options);

}  // namespace qv::host

#endif  // QVHOST_CLI_PLUGIN_USE_H
