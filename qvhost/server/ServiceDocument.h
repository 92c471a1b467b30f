// SPDX-License-Identifier: Apache-2.0

// Converts between the directory of services and the property list that the plug-in keeps it in,
// with the plug-in's own conversion.
//
// The root of the property list is a dictionary. Its key "Address" holds a dictionary, whose key
// "services" holds an array with a dictionary for each service. The root's other keys belong to
// other components.
#ifndef QVHOST_SERVER_SERVICE_DOCUMENT_H
#define QVHOST_SERVER_SERVICE_DOCUMENT_H

#include <CoreFoundation/CoreFoundation.h>
#include <QvCFHolder.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "server/Service.h"
#include "server/Snapshot.h"

namespace qv::host {

// What a root holds under "Address".
struct StoredServices {
    // The services that the plug-in takes from the root at its start, ascending by identifier. If
    // several services share an identifier, the last one counts.
    std::vector<Service> services;

    // Tells whether there is an array of services, and whether each of its elements has an
    // identifier and an address. The plug-in also starts with anything else, and then has other
    // services than somebody may have meant.
    bool isDirectory = false;
};

// Throws std::bad_alloc.
StoredServices servicesIn(CFDictionaryRef root);

// Returns the document of a new file, which holds nothing. Throws std::bad_alloc.
std::string emptyDocument();

// Returns the root without "Address", as an XML document. Throws std::bad_alloc.
std::string otherKeysOf(CFDictionaryRef root);

// Returns the XML document with the services and the other keys, as the plug-in saves it. Other
// keys that are no property list count as none. Throws std::system_error if an address is not
// UTF-8, and std::bad_alloc.
qor::kevra::CFHolder<CFDataRef> documentOf(const Snapshot& services, const std::string& otherKeys);

inline std::string_view bytesOf(CFDataRef data) {
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
            static_cast<std::size_t>(CFDataGetLength(data))};
}

}  // namespace qv::host

#endif  // QVHOST_SERVER_SERVICE_DOCUMENT_H
