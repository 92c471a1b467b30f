// SPDX-License-Identifier: Apache-2.0

// Ownership of CoreFoundation objects. No other file outside the layer calls CFRelease().
#ifndef QV_CF_HOLDER_H
#define QV_CF_HOLDER_H

#include <CoreFoundation/CoreFoundation.h>

#include <type_traits>
#include <utility>

namespace qor::kevra {

// Holds one reference to an object, or null, and releases the reference when it is destroyed. `T`
// is the type of the reference, such as CFStringRef.
template <class T>
class CFHolder {
    static_assert(std::is_pointer_v<T>, "CFHolder takes a reference type, such as CFStringRef");

  public:
    CFHolder() noexcept = default;
    // Takes over the reference that a function with Create or Copy in its name returns.
    explicit CFHolder(T object) noexcept : object_(object) {}
    CFHolder(CFHolder&& other) noexcept : object_(other.release()) {}
    CFHolder& operator=(CFHolder&& other) noexcept {
        CFHolder(std::move(other)).swap(*this);
        return *this;
    }
    CFHolder(const CFHolder&) = delete;
    CFHolder& operator=(const CFHolder&) = delete;
    ~CFHolder() {
        if (object_ != nullptr) {
            CFRelease(object_);
        }
    }

    // Returns the object. The holder keeps its reference.
    T get() const noexcept { return object_; }

    // Returns the object and passes its reference to the caller. The holder is empty afterwards.
    [[nodiscard]] T release() noexcept { return std::exchange(object_, nullptr); }

    explicit operator bool() const noexcept { return object_ != nullptr; }

  private:
    void swap(CFHolder& other) noexcept { std::swap(object_, other.object_); }

    T object_ = nullptr;
};

}  // namespace qor::kevra

#endif  // QV_CF_HOLDER_H
