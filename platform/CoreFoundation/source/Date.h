// SPDX-License-Identifier: Apache-2.0

// Declares dates for the readers and the writer.
#ifndef COREFOUNDATION_DATE_H
#define COREFOUNDATION_DATE_H

#include <CoreFoundation/CFDate.h>

#include "Object.h"

namespace cf {

struct Date : Object {
    explicit Date(CFAbsoluteTime itsTime) : Object(Type::Date), time(itsTime) {}

    CFAbsoluteTime time;
};

inline const Date* asDate(const Object* object) {
    return static_cast<const Date*>(object);
}

}  // namespace cf

#endif  // COREFOUNDATION_DATE_H
