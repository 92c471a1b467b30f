// Writes property lists as XML.
#ifndef COREFOUNDATION_XMLWRITER_H
#define COREFOUNDATION_XMLWRITER_H

#include <cstddef>
#include <cstdint>

#include "Buffer.h"
#include "Object.h"

namespace cf {

// The most bytes that a document may have when it is written. Every reader refuses a document whose
// tree would take more, and the writer writes no such tree. Callers keep the length of a document
// in 32 bits, and a host has to hold the document and its tree in memory at once.
inline constexpr std::size_t kMostWritten = std::size_t{1} << 29;
static_assert(kMostWritten <= INT32_MAX);

// Appends the document of a tree to `document`. Returns false if the tree is not valid or too
// large, or if memory runs out. The contents of the buffer must not be used then.
bool writeXml(const Object* root, Buffer<char>& document);

// Returns whether the document of a valid tree would have more than kMostWritten bytes. Returns
// false for a tree that is not valid.
bool isTooLargeToWrite(const Object* root);

}  // namespace cf

#endif  // COREFOUNDATION_XMLWRITER_H
