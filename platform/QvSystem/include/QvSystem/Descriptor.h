// SPDX-License-Identifier: Apache-2.0

// Owns a file descriptor.
#ifndef QV_SYSTEM_DESCRIPTOR_H
#define QV_SYSTEM_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace qv::system {

// Closes its descriptor at its end and leaves errno as it was. -1 stands for none.
class Descriptor {
  public:
    Descriptor() noexcept = default;
    explicit Descriptor(int number) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }

    explicit operator bool() const noexcept { return number_ != -1; }
    int get() const noexcept { return number_; }

    // Gives the descriptor to the caller.
    [[nodiscard]] int release() noexcept { return std::exchange(number_, -1); }

    // Closes the descriptor and owns another one instead.
    void reset(int number = -1) noexcept {
        if (number_ != -1) {
            const int error = errno;
            ::close(number_);
            errno = error;
        }
        number_ = number;
    }

  private:
    int number_ = -1;
};

}  // namespace qv::system

#endif  // QV_SYSTEM_DESCRIPTOR_H
