// SPDX-License-Identifier: Apache-2.0

// Declares the reader of old-style property lists. OldStyleReader.cpp states at its top which
// documents the reader accepts.
#ifndef COREFOUNDATION_OLDSTYLEREADER_H
#define COREFOUNDATION_OLDSTYLEREADER_H

#include "Buffer.h"
#include "Object.h"
#include "Refusal.h"

namespace cf {

// Reads a document in UTF-16 and returns its tree. Returns null with a reason if the document is
// refused.
const Object* readOldStyle(const Buffer<UniChar>& document, bool containersAreMutable,
                           Refusal& refusal);

}  // namespace cf

#endif  // COREFOUNDATION_OLDSTYLEREADER_H
