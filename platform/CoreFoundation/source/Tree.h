// What the readers build: a tree, from the outside in.
#ifndef COREFOUNDATION_TREE_H
#define COREFOUNDATION_TREE_H

#include <cstddef>

#include "Array.h"
#include "Dictionary.h"
#include "Refusal.h"
#include "WrittenSize.h"

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

    // Sets the key of the next value. Takes over the caller's reference. Returns false with a
    // reason if the tree is too large with the key.
    bool setKey(const Object* key, const char** reason);

    // Adds a value to the innermost container, a dictionary with a key or an array. Takes over the
    // caller's reference. Returns false with a reason if the tree is too large with the value, or
    // if memory runs out.
    bool add(const Object* value, const char** reason);

    // Takes over the finished tree and returns it. Returns null with a reason if the tree is too
    // large to be written. Passes on null, which a reader gives for a document that it refuses.
    const Object* finish(const Object* root, const char** reason) const;

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
    bool count(const Object* object, const char** reason);

    const bool containersAreMutable_;
    const Present present_;
    std::size_t most_ = kMaximumNesting;
    std::size_t depth_ = 0;
    WrittenSize written_;
    // Only the first depth_ of them are initialised.
    Level levels_[kMaximumNesting + 1];
};

}  // namespace cf

#endif  // COREFOUNDATION_TREE_H
