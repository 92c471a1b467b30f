// What a type does with its objects. Each type defines one, in its own file; the table of them all
// is in TypeBehavior.cpp.
#ifndef COREFOUNDATION_TYPEBEHAVIOR_H
#define COREFOUNDATION_TYPEBEHAVIOR_H

#include "Buffer.h"
#include "Object.h"

namespace cf {

class Comparison;
class Description;
class Ending;

struct TypeBehavior {
    // Frees the object; what it refers to is given back through the Ending.
    void (*end)(Object&, Ending&);
    // Whether two objects of the type hold the same; what they refer to is compared through the
    // Comparison. Null: an object equals only itself.
    bool (*equal)(const Object*, const Object*, Comparison&);
    // Null: by address.
    CFHashCode (*hash)(const Object*);
    void (*describe)(const Object*, Description&);
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

// How objects are behind each other in memory without being behind each other on the stack: a tree
// may be nested as deep as memory allows, and its end, and its comparison with another, must not
// recurse.

// An object that refers to others. Once it has ended its capacity is of no use, and the room for it
// links it to the next that waits for its end: ending a tree takes no memory.
struct Container : Object {
    Container(Type itsType, bool canChange, bool isSpecial)
        : Object(itsType), isMutable(canChange), hasCallBacks(isSpecial), capacity(0) {}

    bool isMutable;
    // Whether it holds something else than objects: what it does with that stands behind it.
    bool hasCallBacks;
    union {
        std::size_t capacity;
        Container* nextToEnd;
    };
};

class Ending {
  public:
    // Gives back a reference that an ending object held.
    void release(const Object* object) {
        if (dropReference(object)) {
            endLater(object);
        }
    }

    // Ends an object whose last reference is gone, and whatever ends with it.
    void run(const Object* object) {
        endLater(object);
        run();
    }

    // Ends what still waits for it.
    void run();

  private:
    void endLater(const Object* object);

    Container* waiting_ = nullptr;
};

class Comparison {
  public:
    // Compares the two objects now, or, where they refer to others, later.
    bool compare(const Object* one, const Object* other);

    bool run(const Object* one, const Object* other);

  private:
    struct Pair {
        const Object* one;
        const Object* other;
    };
    Buffer<Pair> pending_;
};

// A text that is written to the end or to a length at which nobody reads on.
class Description {
  public:
    void add(const char* text);
    void add(const char* bytes, std::size_t count);
    void add(const Object* object);

    // What is no object, and so can only describe itself, if at all.
    void add(const void* value, CFStringRef (*copyDescription)(const void*));

    // Where there was no memory for the text.
    bool failed() const { return failed_; }
    bool full() const { return failed_ || text_.size() >= kLongest; }
    const Buffer<char>& text() const { return text_; }

  private:
    static constexpr std::size_t kLongest = 1 << 16;
    static constexpr int kDeepest = 64;

    Buffer<char> text_;
    int depth_ = 0;
    bool failed_ = false;
};

}  // namespace cf

#endif  // COREFOUNDATION_TYPEBEHAVIOR_H
