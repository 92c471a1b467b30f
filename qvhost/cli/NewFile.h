// Makes a new file that is complete or does not exist, and never replaces another file.
#ifndef QVHOST_CLI_NEW_FILE_H
#define QVHOST_CLI_NEW_FILE_H

#include <string>
#include <string_view>

namespace qv::host {

// Makes the file with the mode 0600, and the directories that are missing with 0750. Returns when
// they are on the disk. Throws std::system_error and leaves nothing behind if it fails, or if
// anything stands at the path, a symbolic link to nothing included.
//
// SIGHUP, SIGINT, SIGQUIT and SIGTERM take effect when the function returns. The file is complete
// then, or nothing is left behind.
void makeNewFile(const std::string& path, std::string_view content);

}  // namespace qv::host

#endif  // QVHOST_CLI_NEW_FILE_H
