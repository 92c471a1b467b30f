// SPDX-License-Identifier: Apache-2.0

// Reads and changes configuration files with the property-list layer alone, independently of the
// plug-in's own code.
#ifndef QV_FUZZ_STORED_DOCUMENT_H
#define QV_FUZZ_STORED_DOCUMENT_H

#include <optional>
#include <string>

#include "namingService/DirectoryModel.h"

namespace qv::fuzz {

// Returns the bytes with the services that a start loads from them.
Document documentOf(std::string bytes);

// Returns the services as a file gives them back: an address ends at its first NUL and lacks a byte
// order mark at its start. Returns nothing if a service cannot be stored.
std::optional<Directory> asStored(const Directory& services);

// Returns the loaded document with these services and all its other keys. Returns nothing if a
// service cannot be stored. Aborts if the document does not read back the same, as far as a
// document can express it.
std::optional<Document> savedAfter(const Document& loaded, const Directory& services);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_STORED_DOCUMENT_H
