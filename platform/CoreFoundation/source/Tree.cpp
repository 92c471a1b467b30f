#include "Tree.h"

#include <utility>

namespace cf {

Tree::~Tree() {
    while (depth_ != 0) {
        if (hasKey()) {
            release(top().key);
        }
        release(close());
    }
}

bool Tree::open(Container* container, const char** reason) {
    if (container == nullptr) {
        *reason = kOutOfMemory;
        return false;
    }
    if (depth_ == most_) {
        release(container);
        *reason = kNestedTooDeep;
        return false;
    }
    container->isMutable = containersAreMutable_;
    levels_[depth_++] = {container, nullptr};
    return true;
}

bool Tree::add(const Object* value) {
    if (!isInDictionary()) {
        return appendTaking(static_cast<Array&>(*top().container), value);
    }
    const Object* const key = std::exchange(top().key, nullptr);
    return insertTaking(static_cast<Dictionary&>(*top().container), key, value, present_);
}

Container* Tree::close() {
    --depth_;
    return levels_[depth_].container;
}

}  // namespace cf
