// SPDX-License-Identifier: Apache-2.0

// Declares the reader of binary property lists. BinaryReader.cpp states at its top which documents
// the reader accepts.
#ifndef COREFOUNDATION_BINARYREADER_H
#define COREFOUNDATION_BINARYREADER_H

#include <string_view>

#include "Object.h"
#include "Refusal.h"

namespace cf {

// Returns whether the bytes begin like a binary document.
bool looksBinary(std::string_view document);

// Reads a document and returns its tree. Returns null with a reason if the document is refused.
const Object* readBinary(std::string_view document, bool containersAreMutable, Refusal& refusal);

}  // namespace cf

#endif  // COREFOUNDATION_BINARYREADER_H
