// Old-style property lists. What the reader accepts stands at the top of OldStyleReader.cpp.
#ifndef COREFOUNDATION_OLDSTYLEREADER_H
#define COREFOUNDATION_OLDSTYLEREADER_H

#include "Buffer.h"
#include "Object.h"
#include "Refusal.h"

namespace cf {

// Reads a document in UTF-16. Returns null with a reason if it is none.
const Object* readOldStyle(const Buffer<UniChar>& document, bool containersAreMutable,
                           Refusal& refusal);

}  // namespace cf

#endif  // COREFOUNDATION_OLDSTYLEREADER_H
