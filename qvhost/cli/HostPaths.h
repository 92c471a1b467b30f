// SPDX-License-Identifier: Apache-2.0

// Finds the plug-in's library and the configuration file.
//
// A library that nobody named is looked for beside the program, then in the library directories
// that belong to the place of the program, then in the directory that the build names. So a build
// tree, a moved installation and a system-wide installation all work.
#ifndef QVHOST_CLI_HOST_PATHS_H
#define QVHOST_CLI_HOST_PATHS_H

#include <filesystem>
#include <string>
#include <vector>

namespace qv::host {

// Returns the directory of the running program, with symbolic links resolved. Throws
// std::system_error or std::filesystem::filesystem_error if the system does not tell.
std::filesystem::path programDirectory();

// Returns the files to try, in order, for a program in that directory.
std::vector<std::filesystem::path> pluginPlaces(const std::filesystem::path& directory);

// Returns the first of pluginPlaces() that exists. Throws PluginError, which names them all, if
// none exists.
std::filesystem::path findPlugin(const std::filesystem::path& directory);

// Returns the path of the configuration file in this directory. If the name of the directory is
// empty, the directory is that of QV_CONFIG_DIR in the environment, or else the one that the build
// names.
std::string configurationFile(std::string directory);

}  // namespace qv::host

#endif  // QVHOST_CLI_HOST_PATHS_H
