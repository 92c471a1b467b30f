// Memory that grows. A failed allocation is a false result, never an exception: nothing may be
// thrown through the C interface, and every caller has a null to return.
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

    // Makes room for `more` elements after those there are; false, and nothing is changed, where
    // there is no memory for them.
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

    // What reserve() made room for, to be written there and then taken over by advance().
    T* end() { return elements_ + size_; }
    void advance(std::size_t count) { size_ += count; }

    void shrinkTo(std::size_t size) { size_ = size; }

    T* data() { return elements_; }
    const T* data() const { return elements_; }
    std::size_t size() const { return size_; }
    T& operator[](std::size_t index) { return elements_[index]; }
    const T& operator[](std::size_t index) const { return elements_[index]; }
    T& back() { return elements_[size_ - 1]; }

    // Hands the memory to the caller, who frees it.
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
        // Doubled while that is little, since what is not used of it is memory all the same.
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
