// What a configuration file says, and what a save makes of it: by the property-list layer alone,
// without the code that the plug-in reads and writes its configuration with.
#ifndef QV_FUZZ_STORED_DOCUMENT_H
#define QV_FUZZ_STORED_DOCUMENT_H

#include <optional>
#include <string>

#include "support/DirectoryModel.h"

namespace qv::fuzz {

tests::Document documentOf(std::string bytes);

// The services as they come back from a file: an address is stored up to its first NUL, and is then
// what the layer reads there. Nothing where one cannot be stored.
std::optional<tests::Directory> asStored(const tests::Directory& services);

// The document with these services and all else as it is. Nothing where one cannot be stored.
// Checks that it reads back as that, as far as a document can say it; aborts otherwise.
std::optional<tests::Document> savedAfter(const tests::Document& loaded,
                                          const tests::Directory& services);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_STORED_DOCUMENT_H
