// SPDX-License-Identifier: Apache-2.0

#include "Set.h"

#include <algorithm>

#include "Hash.h"

namespace cf {

namespace {

void endSet(Object& object, Ending& ending) {
    ending.release(static_cast<Set&>(object).leaves);
    ending.release(static_cast<Set&>(object).containers);
    dispose(&static_cast<Set&>(object));
}

bool equalSets(const Object* one, const Object* other, Comparison& comparison) {
    const auto& left = *static_cast<const Set*>(one);
    const auto& right = *static_cast<const Set*>(other);
    return comparison.compare(left.leaves, right.leaves) &&
           comparison.compare(left.containers, right.containers);
}

std::size_t count(const Set& set) {
    return set.leaves->count + set.containers->count;
}

CFHashCode hashSet(const Object* object) {
    return hashWord(count(*static_cast<const Set*>(object)));
}

// Returns whether one of the first containers equals the member.
bool isThere(const Array& containers, const Object* member) {
    constexpr std::size_t kMostCompared = 32;
    const std::size_t count = std::min(containers.count, kMostCompared);
    return std::any_of(containers.values, containers.values + count,
                       [member](const Object* other) { return equal(other, member); });
}

}  // namespace

const TypeBehavior kSetBehavior = {endSet, equalSets, hashSet};

Set* makeSet(const Array& values) {
    Ref<Dictionary> leaves(makeDictionary());
    Ref<Array> containers(makeArray());
    if (!leaves || !containers) {
        return nullptr;
    }
    for (std::size_t at = 0; at < values.count; ++at) {
        const Object* const member = values.values[at];
        if (isContainer(member) && isThere(*containers, member)) {
            continue;
        }
        retain(member);
        if (isContainer(member)) {
            if (!appendTaking(*containers, member)) {
                return nullptr;
            }
        } else {
            retain(member);
            if (!insertTaking(*leaves, member, member, Present::Keep)) {
                return nullptr;
            }
        }
    }
    auto* const set = create<Set>(kCFAllocatorDefault, 0, leaves.get(), containers.get());
    if (set != nullptr) {
        leaves.pass();
        containers.pass();
    }
    return set;
}

}  // namespace cf

CFTypeID CFSetGetTypeID() {
    return cf::typeId(cf::Type::Set);
}

CFIndex CFSetGetCount(CFSetRef set) {
    return static_cast<CFIndex>(cf::count(*reinterpret_cast<const cf::Set*>(set)));
}
