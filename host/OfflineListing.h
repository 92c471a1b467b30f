// Reads the directory of services from its file, without the plug-in and without a host.
#ifndef QVHOST_OFFLINE_LISTING_H
#define QVHOST_OFFLINE_LISTING_H

#include <string>
#include <vector>

#include "Service.h"

namespace qv::host {

struct OfflineListing {
    std::vector<Service> services;  // ascending by identifier

    // Names the file that was read. If that is the backup, says why, too.
    std::string source;
};

// Returns the services that a host would start with: those of the configuration file, or of its
// backup if the file is missing or damaged. Changes nothing on the disk. Throws std::runtime_error,
// with a line for a person, if neither can be read.
OfflineListing listOffline(const std::string& configurationFile);

}  // namespace qv::host

#endif  // QVHOST_OFFLINE_LISTING_H
