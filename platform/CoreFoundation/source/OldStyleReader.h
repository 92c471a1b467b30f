// Old-style property lists. What the reader accepts stands at the top of OldStyleReader.cpp.
#ifndef COREFOUNDATION_OLDSTYLEREADER_H
#define COREFOUNDATION_OLDSTYLEREADER_H

#include <string_view>

#include "Object.h"
#include "Refusal.h"

namespace cf {

// The tree of a document in UTF-8. Null, with a reason, where it is none.
const Object* readOldStyle(std::string_view document, bool containersAreMutable, Refusal& refusal);

}  // namespace cf

#endif  // COREFOUNDATION_OLDSTYLEREADER_H
