// SPDX-License-Identifier: Apache-2.0

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

bool Tree::count(const Object* object, const char** reason) {
    // An outermost container that is excluded from the limit of depth is not written either.
    const std::size_t depth = depth_ - (most_ - kMaximumNesting);
    if (!written_.add(object, depth)) {
        *reason = kTooLarge;
        return false;
    }
    return true;
}

bool Tree::setKey(const Object* key, const char** reason) {
    top().key = key;
    return count(key, reason);
}

bool Tree::add(const Object* value, const char** reason) {
    if (!count(value, reason)) {
        release(value);
        return false;
    }
    const bool isAdded = isInDictionary()
                             ? insertTaking(static_cast<Dictionary&>(*top().container),
                                            std::exchange(top().key, nullptr), value, present_)
                             : appendTaking(static_cast<Array&>(*top().container), value);
    if (!isAdded) {
        *reason = kOutOfMemory;
    }
    return isAdded;
}

const Object* Tree::finish(const Object* root, const char** reason) const {
    if (root == nullptr || written_.fits(root)) {
        return root;
    }
    release(root);
    *reason = kTooLarge;
    return nullptr;
}

Container* Tree::close() {
    --depth_;
    return levels_[depth_].container;
}

}  // namespace cf
