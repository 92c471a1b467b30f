// SPDX-License-Identifier: Apache-2.0

// Declares the functions that each type defines for its objects. TypeBehavior.cpp selects those of
// an object.
#ifndef COREFOUNDATION_TYPEBEHAVIOR_H
#define COREFOUNDATION_TYPEBEHAVIOR_H

#include "Buffer.h"
#include "Object.h"

namespace cf {

class Comparison;
class Ending;

struct TypeBehavior {
    // Frees the object, and releases the objects that it refers to through the Ending. This is null
    // if no object of the type ever ends.
    void (*end)(Object&, Ending&);
    // Returns whether two objects of the type have the same contents. Compares the objects that
    // they refer to through the Comparison. If this is null, an object equals only itself.
    bool (*equal)(const Object*, const Object*, Comparison&);
    // Returns the hash of the object. If this is null, the hash is the address of the object.
    CFHashCode (*hash)(const Object*);
};

extern const TypeBehavior kNullBehavior;
extern const TypeBehavior kAllocatorBehavior;
extern const TypeBehavior kStringBehavior;
extern const TypeBehavior kNumberBehavior;
extern const TypeBehavior kBooleanBehavior;
extern const TypeBehavior kDataBehavior;
extern const TypeBehavior kDateBehavior;
extern const TypeBehavior kUidBehavior;
extern const TypeBehavior kErrorBehavior;
extern const TypeBehavior kArrayBehavior;
extern const TypeBehavior kDictionaryBehavior;
extern const TypeBehavior kSetBehavior;

const TypeBehavior& behaviorOf(const Object* object);

inline bool isContainer(const Object* object) {
    return typeOf(object) >= Type::Array;
}

// A tree may be nested as deep as memory allows. So destroying a tree and comparing two trees must
// not recurse: Ending and Comparison keep the pending objects in a list.

// An object that refers to others. Its values are objects, which it retains, or plain pointers.
// While a container waits to be destroyed, its capacity is not needed. The list of waiting
// containers uses that space for its links, so destroying a tree takes no memory.
struct Container : Object {
    Container(Type itsType, bool canChange, bool areObjects = true)
        : Object(itsType), isMutable(canChange), valuesAreObjects(areObjects), capacity(0) {}

    bool isMutable;
    bool valuesAreObjects;
    union {
        std::size_t capacity;
        Container* nextToEnd;
    };
};

class Ending {
  public:
    // Releases a reference of an object that is being destroyed.
    void release(const Object* object) {
        if (dropReference(object)) {
            endLater(object);
        }
    }

    // Destroys an object whose last reference is gone, and all objects whose last reference it
    // held.
    void run(const Object* object) {
        endLater(object);
        run();
    }

    // Destroys the containers that wait.
    void run();

  private:
    void endLater(const Object* object);

    Container* waiting_ = nullptr;
};

class Comparison {
  public:
    // Compares two leaves at once. Keeps two containers of the same type for later and returns
    // true. Returns false if the objects differ, or if memory runs out.
    bool compare(const Object* one, const Object* other);

    bool run(const Object* one, const Object* other);

  private:
    struct Pair {
        const Object* one;
        const Object* other;
    };
    Buffer<Pair> pending_;
};

}  // namespace cf

#endif  // COREFOUNDATION_TYPEBEHAVIOR_H
