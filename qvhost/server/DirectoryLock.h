// SPDX-License-Identifier: Apache-2.0

// Lets only one host use a configuration. The lock is on a file beside the configuration file,
// whose name ends in ".lock". The file names the holder's process and socket, so that a second host
// can say who is in its way. The file stays when the host ends, and a killed host leaves no lock.
//
//     const DirectoryLock lock("/var/lib/Vornak/LorxCore/namingService.conf", socketPath);
#ifndef QVHOST_SERVER_DIRECTORY_LOCK_H
#define QVHOST_SERVER_DIRECTORY_LOCK_H

#include <QvSystem/Descriptor.h>

#include <string>

namespace qv::host {

class DirectoryLock {
  public:
    // Takes the lock of the configuration file at this path. `socket` is the path of the host's
    // socket, or empty. Throws std::runtime_error, which names the holder, if another process has
    // the lock. Throws it also if the directory is missing or the lock file cannot be made, and if
    // root would use a directory of another owner.
    DirectoryLock(const std::string& configurationFile, const std::string& socket);

  private:
    system::Descriptor file_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_DIRECTORY_LOCK_H
