// SPDX-License-Identifier: Apache-2.0

#include "Uid.h"

#include <CoreFoundation/CFPropertyList.h>

#include "Hash.h"
#include "TypeBehavior.h"

namespace cf {

namespace {

void endUid(Object& object, Ending& /*ending*/) {
    dispose(&static_cast<Uid&>(object));
}

bool equalUids(const Object* one, const Object* other, Comparison& /*comparison*/) {
    return static_cast<const Uid*>(one)->value == static_cast<const Uid*>(other)->value;
}

CFHashCode hashUid(const Object* object) {
    return hashWord(static_cast<const Uid*>(object)->value);
}

}  // namespace

const TypeBehavior kUidBehavior = {endUid, equalUids, hashUid};

}  // namespace cf

CFTypeID _CFKeyedArchiverUIDGetTypeID() {
    return cf::typeId(cf::Type::Uid);
}

uint32_t _CFKeyedArchiverUIDGetValue(CFKeyedArchiverUIDRef uid) {
    return reinterpret_cast<const cf::Uid*>(uid)->value;
}
