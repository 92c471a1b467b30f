// A descriptor that is closed with its owner.
#ifndef QV_BENCH_DESCRIPTOR_H
#define QV_BENCH_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace qv::bench {

class Descriptor {
  public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    ~Descriptor() {
        if (number_ != -1) {
            close(number_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;

    int number() const { return number_; }

  private:
    int number_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_DESCRIPTOR_H
