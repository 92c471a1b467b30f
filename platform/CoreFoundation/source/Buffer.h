// SPDX-License-Identifier: Apache-2.0

// Provides a buffer that grows. It reports a failed allocation as false and never throws, since no
// exception may pass through the C interface.
#ifndef COREFOUNDATION_BUFFER_H
#define COREFOUNDATION_BUFFER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

namespace cf {

template <typename T>
class Buffer {
    static_assert(std::is_trivially_copyable_v<T>, "elements are moved with realloc()");

  public:
    Buffer() = default;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() { std::free(elements_); }

    // Makes room for `more` further elements. Returns false and changes nothing if memory runs out.
    bool reserve(std::size_t more) {
        if (more <= capacity_ - size_) {
            return true;
        }
        return grow(more);
    }

    bool append(const T& element) {
        if (!reserve(1)) {
            return false;
        }
        elements_[size_++] = element;
        return true;
    }

    bool append(const T* elements, std::size_t count) {
        if (!reserve(count)) {
            return false;
        }
        if (count != 0) {
            std::memcpy(static_cast<void*>(elements_ + size_), elements, count * sizeof(T));
        }
        size_ += count;
        return true;
    }

    // The caller writes elements at end(), where reserve() made room, and adds them with advance().
    T* end() { return elements_ + size_; }
    void advance(std::size_t count) { size_ += count; }

    void shrinkTo(std::size_t size) { size_ = size; }

    T* data() { return elements_; }
    const T* data() const { return elements_; }
    std::size_t size() const { return size_; }
    T& operator[](std::size_t index) { return elements_[index]; }
    const T& operator[](std::size_t index) const { return elements_[index]; }
    T& back() { return elements_[size_ - 1]; }

    // Passes the memory to the caller, who frees it.
    T* release() {
        size_ = 0;
        capacity_ = 0;
        return std::exchange(elements_, nullptr);
    }

  private:
    bool grow(std::size_t more) {
        constexpr std::size_t kMost = PTRDIFF_MAX / sizeof(T);
        if (more > kMost - size_) {
            return false;
        }
        // The capacity doubles while the buffer is small, and then grows by a quarter, since unused
        // capacity takes memory as well.
        constexpr std::size_t kMuch = (std::size_t{1} << 25) / sizeof(T);
        const std::size_t needed = size_ + more;
        const std::size_t extra = capacity_ < kMuch ? capacity_ : capacity_ / 4;
        std::size_t capacity =
            std::max(needed, extra > kMost - capacity_ ? kMost : capacity_ + extra);
        void* elements = std::realloc(static_cast<void*>(elements_), capacity * sizeof(T));
        if (elements == nullptr && capacity != needed) {
            capacity = needed;
            elements = std::realloc(static_cast<void*>(elements_), capacity * sizeof(T));
        }
        if (elements == nullptr) {
            return false;
        }
        elements_ = static_cast<T*>(elements);
        capacity_ = capacity;
        return true;
    }

    T* elements_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace cf

#endif  // COREFOUNDATION_BUFFER_H
