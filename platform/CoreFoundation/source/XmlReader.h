// XML property lists. What the reader accepts stands at the top of XmlReader.cpp.
#ifndef COREFOUNDATION_XMLREADER_H
#define COREFOUNDATION_XMLREADER_H

#include <string_view>

#include "Object.h"
#include "Refusal.h"

namespace cf {

// The tree of a document in UTF-8, without a byte-order mark. Null, with a reason, where it is
// none.
const Object* readXml(std::string_view document, bool containersAreMutable, Refusal& refusal);

}  // namespace cf

#endif  // COREFOUNDATION_XMLREADER_H
