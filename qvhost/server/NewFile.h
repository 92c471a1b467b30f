// SPDX-License-Identifier: Apache-2.0

// Writes files that are complete or do not exist. A reader never sees a part of one, also after a
// power failure.
#ifndef QVHOST_SERVER_NEW_FILE_H
#define QVHOST_SERVER_NEW_FILE_H

#include <string>
#include <string_view>

namespace qv::host {

// Makes the file with the mode 0600, and the directories that are missing with 0750. Never replaces
// another file. `privateDirectory` is the path of a further directory in one of these, which is
// made with 0700 unless something stands there; an empty path stands for none. Returns when they
// are on the disk. Throws std::system_error and leaves nothing behind if it fails, or if anything
// stands at the file's path, a symbolic link to nothing included.
//
// SIGHUP, SIGINT, SIGQUIT and SIGTERM take effect when the function returns. The file is complete
// then, or nothing is left behind.
void makeNewFile(const std::string& path, std::string_view content,
                 const std::string& privateDirectory = "");

// Puts a new file in the place of a regular file, with its mode and its owner. Makes a file with
// the mode 0600 if there is none. Follows symbolic links, which stay. Returns when the file is on
// the disk. Throws std::system_error if it fails, or if something else stands there. The old file
// stays then, unless only the flush of the directory failed.
//
// Only one process may replace the file at a time. If it is killed, the new file may be left under
// the name .FILE.new. The next replacement removes it.
void replaceFile(const std::string& path, std::string_view content);

}  // namespace qv::host

#endif  // QVHOST_SERVER_NEW_FILE_H
