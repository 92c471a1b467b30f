// Makes a file that is there whole or not at all, and never in the place of another.
#ifndef QVHOST_CLI_NEW_FILE_H
#define QVHOST_CLI_NEW_FILE_H

#include <string>
#include <string_view>

namespace qv::host {

// Makes the file with the mode 0600, and the directories that it lacks with 0750, and sees to it
// that they survive a loss of power. Whatever stands at the path already, a symbolic link to
// nothing included, is an error. Throws std::system_error, with nothing left behind.
//
// A signal that ends a program by hand (SIGINT, SIGTERM and their like) takes effect at the end:
// the file is whole then, or nothing is left.
void makeNewFile(const std::string& path, std::string_view content);

}  // namespace qv::host

#endif  // QVHOST_CLI_NEW_FILE_H
