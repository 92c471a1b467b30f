// SPDX-License-Identifier: Apache-2.0

// Declares the reader of XML property lists. XmlReader.cpp states at its top which documents the
// reader accepts.
#ifndef COREFOUNDATION_XMLREADER_H
#define COREFOUNDATION_XMLREADER_H

#include <string_view>

#include "Object.h"
#include "Refusal.h"

namespace cf {

// Reads a document in UTF-8 without a byte-order mark and returns its tree. Returns null with a
// reason if the document is refused.
const Object* readXml(std::string_view document, bool containersAreMutable, Refusal& refusal);

}  // namespace cf

#endif  // COREFOUNDATION_XMLREADER_H
