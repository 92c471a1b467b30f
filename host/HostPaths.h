// Where the plug-in's library is looked for when nobody named it: beside the program, then in the
// library directories that belong to the place where the program stands, then in the one that the
// build was configured with. A build tree, a moved installation and a system-wide one all work.
#ifndef QVHOST_HOST_PATHS_H
#define QVHOST_HOST_PATHS_H

#include <filesystem>
#include <vector>

namespace qv::host {

// The directory of the running program, symbolic links resolved. Throws std::system_error or
// std::filesystem::filesystem_error when the system does not tell.
std::filesystem::path programDirectory();

// The files to try, in order, for a program in that directory.
std::vector<std::filesystem::path> pluginPlaces(const std::filesystem::path& directory);

// The first of pluginPlaces() that exists. Throws PluginError, which names them all, when none
// does.
std::filesystem::path findPlugin(const std::filesystem::path& directory);

}  // namespace qv::host

#endif  // QVHOST_HOST_PATHS_H
