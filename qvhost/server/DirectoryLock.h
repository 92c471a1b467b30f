// Lets only one host use a configuration. The lock is on a file beside the configuration file. The
// file names the holder's process and socket, so that a second host can say who is in its way.
#ifndef QVHOST_SERVER_DIRECTORY_LOCK_H
#define QVHOST_SERVER_DIRECTORY_LOCK_H

#include <QvSystem/Descriptor.h>

#include <string>

namespace qv::host {

class DirectoryLock {
  public:
    // Takes the lock of the configuration file at this path. `socket` is the path of the host's
    // socket. Throws std::runtime_error, which names the holder, if another process has the lock,
    // if the lock cannot be made, or if root would serve from a directory of another owner.
    DirectoryLock(const std::string& configurationFile, const std::string& socket);

  private:
    system::Descriptor file_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_DIRECTORY_LOCK_H
