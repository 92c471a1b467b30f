// SPDX-License-Identifier: Apache-2.0

#include "TypeBehavior.h"

#include <cstdlib>

namespace cf {

const TypeBehavior& behaviorOf(const Object* object) {
    switch (typeOf(object)) {
        case Type::Null:
            return kNullBehavior;
        case Type::Allocator:
            return kAllocatorBehavior;
        case Type::String:
            return kStringBehavior;
        case Type::Number:
            return kNumberBehavior;
        case Type::Boolean:
            return kBooleanBehavior;
        case Type::Data:
            return kDataBehavior;
        case Type::Date:
            return kDateBehavior;
        case Type::Uid:
            return kUidBehavior;
        case Type::Error:
            return kErrorBehavior;
        case Type::Array:
            return kArrayBehavior;
        case Type::Dictionary:
            return kDictionaryBehavior;
        case Type::Set:
            return kSetBehavior;
    }
    std::abort();  // The pointer refers to no object, or to a destroyed one.
}

// The casts are safe: the object is in writable memory of this library, and no other reference to
// it exists.
void Ending::endLater(const Object* object) {
    if (isContainer(object)) {
        auto* const container = const_cast<Container*>(static_cast<const Container*>(object));
        container->nextToEnd = waiting_;
        waiting_ = container;
    } else {
        behaviorOf(object).end(const_cast<Object&>(*object), *this);
    }
}

void Ending::run() {
    while (waiting_ != nullptr) {
        Container* const next = waiting_;
        waiting_ = next->nextToEnd;
        behaviorOf(next).end(*next, *this);
    }
}

bool Comparison::compare(const Object* one, const Object* other) {
    if (one == other) {
        return true;
    }
    if (one == nullptr || other == nullptr || typeOf(one) != typeOf(other)) {
        return false;
    }
    if (isContainer(one)) {
        return pending_.append({one, other});
    }
    const auto equalOf = behaviorOf(one).equal;
    return equalOf != nullptr && equalOf(one, other, *this);
}

bool Comparison::run(const Object* one, const Object* other) {
    bool areEqual = compare(one, other);
    while (areEqual && pending_.size() != 0) {
        const Pair next = pending_.back();
        pending_.shrinkTo(pending_.size() - 1);
        areEqual = behaviorOf(next.one).equal(next.one, next.other, *this);
    }
    return areEqual;
}

}  // namespace cf
