// SPDX-License-Identifier: Apache-2.0

// Defines the base of all objects: a count of references and a type.
//
// An object is one block of memory from malloc(). It holds an Object, the members that its type
// adds, and often its contents behind them. The opaque references of the public headers point to
// it. The constants of the interface are objects in static memory, whose references are not
// counted.
#ifndef COREFOUNDATION_OBJECT_H
#define COREFOUNDATION_OBJECT_H

#include <CoreFoundation/CFBase.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "ObjectMemory.h"

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
    // The types below are containers, which refer to other objects.
    Array,
    Dictionary,
    Set,
};

constexpr CFTypeID typeId(Type type) {
    return static_cast<CFTypeID>(type);
}

struct Object {
    // The count of an object that is never destroyed.
    static constexpr std::uint32_t kImmortal = 0x80000000U;

    explicit constexpr Object(Type itsType, std::uint32_t count = 1)
        : references(count), type(itsType) {}

    // The count changes in constant objects as well. Everything else in an object is constant,
    // except that the interface changes containers.
    mutable std::atomic<std::uint32_t> references;
    Type type;
};

inline const Object* asObject(CFTypeRef object) {
    return static_cast<const Object*>(object);
}

// Returns whether the reference itself holds a small whole number, which takes no memory. Such a
// reference is odd, so it cannot be the address of an object. Number.cpp defines its bits.
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

// Constructs a T with `extra` bytes of memory behind it. Returns null for the null allocator, or if
// memory runs out.
template <typename T, typename... Arguments>
T* create(CFAllocatorRef allocator, std::size_t extra, Arguments&&... arguments) {
    if (allocator == kCFAllocatorNull || extra > PTRDIFF_MAX - sizeof(T)) {
        return nullptr;
    }
    void* const memory = allocateObject(sizeof(T) + extra);
    return memory == nullptr ? nullptr : new (memory) T(std::forward<Arguments>(arguments)...);
}

// Frees an object that create() made with the same number of extra bytes.
template <typename T>
void dispose(T* object, std::size_t extra = 0) {
    freeObject(object, sizeof(T) + extra);
}

inline void retain(const Object* object) {
    if ((countOf(object) & Object::kImmortal) == 0) {
        object->references.fetch_add(1, std::memory_order_relaxed);
    }
}

// Removes a reference. Returns whether it was the last one.
inline bool dropReference(const Object* object) {
    // No other thread can use the object if the caller has the only reference.
    const std::uint32_t count = countOf(object);
    if (count == 1) {
        return true;
    }
    if ((count & Object::kImmortal) != 0) {
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

// Holds one reference and releases it at the end of the scope, unless the reference is passed on.
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

    // Passes the reference to the caller, who releases it.
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
