// SPDX-License-Identifier: Apache-2.0

// Builds a tree for the readers, from the outermost container inwards.
#ifndef COREFOUNDATION_TREE_H
#define COREFOUNDATION_TREE_H

#include <cstddef>

#include "Array.h"
#include "Dictionary.h"
#include "Limits.h"
#include "Refusal.h"
#include "WrittenSize.h"

namespace cf {

// Holds the containers that the reader is inside of. The destructor releases the containers that
// are still open, which are the remains of a refused document.
class Tree {
  public:
    Tree(bool containersAreMutable, Present present)
        : containersAreMutable_(containersAreMutable), present_(present) {}
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
    ~Tree();

    std::size_t depth() const { return depth_; }

    // Excludes the outermost container from the limit of depth.
    void exemptOutermost() { ++most_; }

    // Opens a new, empty container. Returns false with a reason if it is nested too deep, or if
    // memory runs out.
    bool openArray(const char** reason) { return open(makeArray(), reason); }
    bool openDictionary(const char** reason) { return open(makeDictionary(), reason); }

    // These functions tell about the innermost container, which must exist.
    bool isInDictionary() const { return top().container->type == Type::Dictionary; }
    bool hasKey() const { return top().key != nullptr; }

    // Sets the key of the next value and takes over the caller's reference. Returns false with a
    // reason if the key makes the tree too large.
    bool setKey(const Object* key, const char** reason);

    // Adds a value to the innermost container, which is an array or a dictionary with a key. Takes
    // over the caller's reference. Returns false with a reason if the value makes the tree too
    // large, or if memory runs out.
    bool add(const Object* value, const char** reason);

    // Takes over the finished tree and returns it. Returns null with a reason if the tree is too
    // large to be written. Returns null without a new reason if `root` is null, which means that
    // the reader refuses the document.
    const Object* finish(const Object* root, const char** reason) const;

    // Closes the innermost container and passes it to the caller.
    Container* close();

  private:
    struct Level {
        Container* container;
        const Object* key;
    };

    Level& top() { return levels_[depth_ - 1]; }
    const Level& top() const { return levels_[depth_ - 1]; }
    bool open(Container* container, const char** reason);
    bool count(const Object* object, const char** reason);

    const bool containersAreMutable_;
    const Present present_;
    std::size_t most_ = kMaximumNesting;
    std::size_t depth_ = 0;
    WrittenSize written_;
    // Only the first depth_ levels are initialised.
    Level levels_[kMaximumNesting + 1];
};

}  // namespace cf

#endif  // COREFOUNDATION_TREE_H
