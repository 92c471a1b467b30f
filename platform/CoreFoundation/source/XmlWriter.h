// Writes XML property lists.
#ifndef COREFOUNDATION_XMLWRITER_H
#define COREFOUNDATION_XMLWRITER_H

#include "Buffer.h"
#include "Object.h"

namespace cf {

// Appends the document of a tree to `document`. False where the tree is not valid, or where there
// is no memory; what is in the buffer is then of no use.
bool writeXml(const Object* root, Buffer<char>& document);

}  // namespace cf

#endif  // COREFOUNDATION_XMLWRITER_H
