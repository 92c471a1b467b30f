// Binary property lists. What the reader accepts stands at the top of BinaryReader.cpp.
#ifndef COREFOUNDATION_BINARYREADER_H
#define COREFOUNDATION_BINARYREADER_H

#include <string_view>

#include "Object.h"
#include "Refusal.h"

namespace cf {

// Whether the bytes begin as those of a binary document do.
bool looksBinary(std::string_view document);

// The tree of a document. Null, with a reason, where it is none.
const Object* readBinary(std::string_view document, bool containersAreMutable, Refusal& refusal);

}  // namespace cf

#endif  // COREFOUNDATION_BINARYREADER_H
