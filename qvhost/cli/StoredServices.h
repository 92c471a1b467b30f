// Makes, checks and reads the configuration file, in which the plug-in keeps the services.
//
// The plug-in never makes the file. Without it, the plug-in keeps the services in memory only and
// does not say so. With each save it copies the old file to a backup.
#ifndef QVHOST_CLI_STORED_SERVICES_H
#define QVHOST_CLI_STORED_SERVICES_H

#include <string>
#include <utility>
#include <vector>

#include "server/Service.h"

namespace qv::host {

class StoredServices {
  public:
    struct Contents {
        std::vector<Service> services;  // ascending by identifier

        // Names the file that was read. If that is the backup, tells why.
        std::string source;
    };

    // An empty path stands for one that is too long for the plug-in.
    explicit StoredServices(std::string path) : path_(std::move(path)) {}

    // Returns why the plug-in keeps nothing in the file, or nothing if it does. Ask after the
    // plug-in is initialised: its start replaces a damaged file by the backup.
    std::string problem() const;

    // Makes the file, which holds no services, and the directories it lacks. Throws
    // std::runtime_error and makes nothing if anything stands in the place of the file, if there is
    // a backup, and if the file cannot be made.
    void make() const;

    // Returns the services that a host would start with: those of the file, or of its backup if the
    // file is missing or damaged. Changes nothing on the disk. Throws std::runtime_error, with a
    // line for a person, if neither can be read.
    Contents read() const;

  private:
    std::string backup() const;

    std::string path_;
};

}  // namespace qv::host

#endif  // QVHOST_CLI_STORED_SERVICES_H
