// SPDX-License-Identifier: Apache-2.0

// Declares the references in an archive for the readers and the writer.
#ifndef COREFOUNDATION_UID_H
#define COREFOUNDATION_UID_H

#include "Object.h"

namespace cf {

struct Uid : Object {
    explicit Uid(std::uint32_t itsValue) : Object(Type::Uid), value(itsValue) {}

    std::uint32_t value;
};

inline const Uid* asUid(const Object* object) {
    return static_cast<const Uid*>(object);
}

}  // namespace cf

#endif  // COREFOUNDATION_UID_H
