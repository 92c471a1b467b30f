// SPDX-License-Identifier: Apache-2.0

// Loads property-list files by the rules of the plug-in, without the plug-in.
#ifndef QVHOST_SERVER_PROPERTY_LIST_FILE_H
#define QVHOST_SERVER_PROPERTY_LIST_FILE_H

#include <CoreFoundation/CoreFoundation.h>
#include <QvCFHolder.h>

#include <cstdint>
#include <string>

#include "server/StoredFile.h"

namespace qv::host {

struct PropertyListFile {
    FileView::State state = FileView::State::Unusable;
    qor::kevra::CFHolder<CFDictionaryRef> root;  // null unless the state is Whole
    std::string problem;                         // completes "FILE ..."; empty if it is Whole
    uint64_t fingerprint = 0;                    // of the bytes that were read; 0 if none were
};

// Reads the file and changes nothing. Does not wait, even if a pipe stands at the path. Throws
// std::bad_alloc, so that a whole file never counts as damaged.
PropertyListFile loadPropertyList(const std::string& path);

}  // namespace qv::host

#endif  // QVHOST_SERVER_PROPERTY_LIST_FILE_H
