// SPDX-License-Identifier: Apache-2.0

// Writes property lists as XML.
#ifndef COREFOUNDATION_XMLWRITER_H
#define COREFOUNDATION_XMLWRITER_H

#include "Buffer.h"
#include "Object.h"

namespace cf {

// Appends the document of a tree to `document`. Returns false if the tree is not valid or too
// large, or if memory runs out; the contents of the buffer must not be used then.
bool writeXml(const Object* root, Buffer<char>& document);

// Returns whether the document of a valid tree has more than kMostWritten bytes. Returns false if
// the tree is not valid.
bool isTooLargeToWrite(const Object* root);

}  // namespace cf

#endif  // COREFOUNDATION_XMLWRITER_H
