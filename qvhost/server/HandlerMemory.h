// SPDX-License-Identifier: Apache-2.0

// Sets memory aside for one Asio handler, so that the handler can wait again however short memory
// is:
//
//     HandlerMemory memory;
//     setTimersAside(context, 1);
//     timer.async_wait(memory.keep([this](const asio::error_code& error) { ... }));
//
// Asio gives the memory back before it calls the handler. So the handler may start the next wait
// with the same memory.
#ifndef QVHOST_SERVER_HANDLER_MEMORY_H
#define QVHOST_SERVER_HANDLER_MEMORY_H

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <list>
#include <new>
#include <utility>

namespace qv::host {

class HandlerMemory {
  public:
    HandlerMemory() = default;
    ~HandlerMemory() = default;

    HandlerMemory(const HandlerMemory&) = delete;
    HandlerMemory& operator=(const HandlerMemory&) = delete;

    // What Asio allocates the memory with.
    template <typename T>
    class Allocator {
      public:
        using value_type = T;

        explicit Allocator(HandlerMemory& memory) noexcept : memory_(&memory) {}
        template <typename U>
        explicit Allocator(const Allocator<U>& other) noexcept : memory_(other.memory_) {}

        T* allocate(std::size_t count) {
            static_assert(alignof(T) <= alignof(std::max_align_t));
            return static_cast<T*>(memory_->take(count * sizeof(T)));
        }
        void deallocate(T* /*taken*/, std::size_t /*count*/) noexcept { memory_->isTaken_ = false; }

        template <typename U>
        bool operator==(const Allocator<U>& other) const noexcept {
            return memory_ == other.memory_;
        }
        template <typename U>
        bool operator!=(const Allocator<U>& other) const noexcept {
            return memory_ != other.memory_;
        }

      private:
        template <typename U>
        friend class Allocator;

        HandlerMemory* memory_;
    };

    template <typename Function>
    class Handler {
      public:
        using allocator_type = Allocator<Function>;

        Handler(HandlerMemory& memory, Function function)
            : memory_(&memory), function_(std::move(function)) {}

        allocator_type get_allocator() const noexcept { return allocator_type(*memory_); }

        template <typename... Arguments>
        void operator()(const Arguments&... arguments) {
            function_(arguments...);
        }

      private:
        HandlerMemory* memory_;
        Function function_;
    };

    // Returns a handler that calls the function and waits in this memory. Only one handler at a
    // time may wait there.
    template <typename Function>
    Handler<Function> keep(Function function) {
        return Handler<Function>(*this, std::move(function));
    }

  private:
    // What Asio keeps of a handler that captures a few pointers.
    static constexpr std::size_t kSize = 256;

    void* take(std::size_t size) {
        if (isTaken_ || size > kSize) {
            throw std::bad_alloc();
        }
        isTaken_ = true;
        return bytes_;
    }

    alignas(std::max_align_t) unsigned char bytes_[kSize] = {};
    bool isTaken_ = false;
};

// Sets memory aside in the context's list of timers, so that this many timers can wait at once.
// Throws std::bad_alloc.
inline void setTimersAside(asio::io_context& context, int count) {
    std::list<asio::steady_timer> timers;
    for (int i = 0; i < count; ++i) {
        // The list keeps its memory when the timers go.
        timers.emplace_back(context, std::chrono::hours(1))
            .async_wait([](const asio::error_code& /*cancelled*/) {});
    }
}

}  // namespace qv::host

#endif  // QVHOST_SERVER_HANDLER_MEMORY_H
