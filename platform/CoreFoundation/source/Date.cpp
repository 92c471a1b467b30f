// SPDX-License-Identifier: Apache-2.0

#include "Date.h"

#include <cmath>

#include "Hash.h"
#include "TypeBehavior.h"

namespace cf {

namespace {

void endDate(Object& object, Ending& /*ending*/) {
    dispose(&static_cast<Date&>(object));
}

bool equalDates(const Object* one, const Object* other, Comparison& /*comparison*/) {
    const CFAbsoluteTime left = static_cast<const Date*>(one)->time;
    const CFAbsoluteTime right = static_cast<const Date*>(other)->time;
    return left == right || (std::isnan(left) && std::isnan(right));
}

CFHashCode hashDate(const Object* object) {
    // Both zeros have the same hash, and so have all values that are not numbers.
    const CFAbsoluteTime time = static_cast<const Date*>(object)->time + 0.0;
    return std::isnan(time) ? hashWord(0) : hashBytes(&time, sizeof time);
}

}  // namespace

const TypeBehavior kDateBehavior = {endDate, equalDates, hashDate};

}  // namespace cf

CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime time) {
    return reinterpret_cast<CFDateRef>(cf::create<cf::Date>(allocator, 0, time));
}

CFTypeID CFDateGetTypeID() {
    return cf::typeId(cf::Type::Date);
}

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) {
    return reinterpret_cast<const cf::Date*>(date)->time;
}
