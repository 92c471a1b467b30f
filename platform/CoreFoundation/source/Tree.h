// What the readers build: a tree, from the outside in.
#ifndef COREFOUNDATION_TREE_H
#define COREFOUNDATION_TREE_H

#include <cstddef>

#include "Array.h"
#include "Dictionary.h"
#include "Refusal.h"

namespace cf {

// The containers that a reader is inside of. What is in there at the end of its life, the remains
// of a document that was refused, is released.
class Tree {
  public:
    Tree(bool containersAreMutable, Present present)
        : containersAreMutable_(containersAreMutable), present_(present) {}
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;
    ~Tree();

    std::size_t depth() const { return depth_; }

    // Keeps the outermost container from counting.
    void exemptOutermost() { ++most_; }

    // Goes into a new, empty container. False, with a reason, where that is too deep or where there
    // is no memory for it.
    bool openArray(const char** reason) { return open(makeArray(), reason); }
    bool openDictionary(const char** reason) { return open(makeDictionary(), reason); }

    // Of the innermost container, which must be there.
    bool isInDictionary() const { return top().container->type == Type::Dictionary; }
    bool hasKey() const { return top().key != nullptr; }

    // The key of the next value; takes over the caller's reference.
    void setKey(const Object* key) { top().key = key; }

    // Adds a value to the innermost container, a dictionary with a key or an array. Takes over the
    // caller's reference; false where there is no memory.
    bool add(const Object* value);

    // Leaves the innermost container, and hands it to the caller.
    Container* close();

  private:
    struct Level {
        Container* container;
        const Object* key;
    };

    Level& top() { return levels_[depth_ - 1]; }
    const Level& top() const { return levels_[depth_ - 1]; }
    bool open(Container* container, const char** reason);

    const bool containersAreMutable_;
    const Present present_;
    std::size_t most_ = kMaximumNesting;
    std::size_t depth_ = 0;
    // Only the first depth_ of them are initialised.
    Level levels_[kMaximumNesting + 1];
};

}  // namespace cf

#endif  // COREFOUNDATION_TREE_H
