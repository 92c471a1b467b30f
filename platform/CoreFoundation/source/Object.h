// What all objects have in common: a count of references, a type, and what their type does with
// them.
//
// An object is one block of malloc()ed memory: an Object, what its type adds, and often its
// contents behind that. The opaque references of the public headers point to it. The constants of
// the interface are objects too, in static memory, and are never counted.
#ifndef COREFOUNDATION_OBJECT_H
#define COREFOUNDATION_OBJECT_H

#include <CoreFoundation/CFBase.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "ObjectMemory.h"
#include "Threads.h"

namespace cf {

// The values of CFTypeID.
enum class Type : std::uint8_t {
    Null = 1,
    Allocator,
    String,
    Number,
    Boolean,
    Data,
    Date,
    Uid,
    Error,
    // Containers, which refer to others.
    Array,
    Dictionary,
    Set,
};

constexpr CFTypeID typeId(Type type) {
    return static_cast<CFTypeID>(type);
}

struct Object {
    // Stands in place of a count in what never ends.
    static constexpr std::uint32_t kImmortal = 0x80000000U;

    explicit constexpr Object(Type itsType, std::uint32_t count = 1)
        : references(count), type(itsType) {}

    // Containers change only through the interface, everything else never: references are counted
    // in constant objects.
    mutable std::atomic<std::uint32_t> references;
    Type type;
};

inline const Object* asObject(CFTypeRef object) {
    return static_cast<const Object*>(object);
}

// A small whole number needs no memory: it stands in its reference, which no object's address can
// be, since it is odd. Number.h has the rest of that.
inline bool standsInReference(const Object* object) {
    return (reinterpret_cast<std::uintptr_t>(object) & 1) != 0;
}

inline Type typeOf(const Object* object) {
    return standsInReference(object) ? Type::Number : object->type;
}

inline std::uint32_t countOf(const Object* object) {
    return standsInReference(object) ? Object::kImmortal
                                     : object->references.load(std::memory_order_acquire);
}

// Memory for a T with `extra` bytes behind it, the T constructed in it. Null where there is none,
// and for the null allocator.
template <typename T, typename... Arguments>
T* create(CFAllocatorRef allocator, std::size_t extra, Arguments&&... arguments) {
    if (allocator == kCFAllocatorNull || extra > PTRDIFF_MAX - sizeof(T)) {
        return nullptr;
    }
    void* const memory = allocateObject(sizeof(T) + extra);
    return memory == nullptr ? nullptr : new (memory) T(std::forward<Arguments>(arguments)...);
}

// Gives back what create() made with as many bytes behind it.
template <typename T>
void dispose(T* object, std::size_t extra = 0) {
    freeObject(object, sizeof(T) + extra);
}

inline void retain(const Object* object) {
    const std::uint32_t count = countOf(object);
    if ((count & Object::kImmortal) != 0) {
        return;
    }
    if (isSingleThreaded()) {
        object->references.store(count + 1, std::memory_order_relaxed);
    } else {
        object->references.fetch_add(1, std::memory_order_relaxed);
    }
}

// Whether that was the last reference.
inline bool dropReference(const Object* object) {
    // Who holds the only reference has nobody to race with.
    const std::uint32_t count = countOf(object);
    if (count == 1) {
        return true;
    }
    if ((count & Object::kImmortal) != 0) {
        return false;
    }
    if (isSingleThreaded()) {
        object->references.store(count - 1, std::memory_order_relaxed);
        return false;
    }
    return object->references.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

void destroy(const Object* object);

inline void release(const Object* object) {
    if (dropReference(object)) {
        destroy(object);
    }
}

bool equal(const Object* one, const Object* other);
CFHashCode hash(const Object* object);

// One reference, given back at the end of the scope unless it was passed on.
template <typename T>
class Ref {
  public:
    Ref() = default;
    explicit Ref(T* object) : object_(object) {}
    Ref(Ref&& other) noexcept : object_(other.pass()) {}
    Ref& operator=(Ref&& other) noexcept {
        reset(other.pass());
        return *this;
    }
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    ~Ref() { reset(nullptr); }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }

    // The reference is the caller's from now on.
    T* pass() { return std::exchange(object_, nullptr); }
    void reset(T* object) {
        if (object_ != nullptr) {
            release(object_);
        }
        object_ = object;
    }

  private:
    T* object_ = nullptr;
};

}  // namespace cf

#endif  // COREFOUNDATION_OBJECT_H
