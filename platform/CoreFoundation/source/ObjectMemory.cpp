// SPDX-License-Identifier: Apache-2.0

#include "ObjectMemory.h"

#include <atomic>
#include <cstdlib>

namespace cf {

namespace {

// The sizes of blocks are those of malloc(): a block is a multiple of 16 bytes, of which malloc()
// uses 8 itself.
constexpr std::size_t kGrain = 16;
constexpr std::size_t kOverhead = 8;

// The classes hold up to 88 bytes: every object of fixed size, and short strings.
constexpr std::size_t kClasses = 6;

constexpr std::size_t kMostKeptBytes = std::size_t{4} << 20;

constexpr std::size_t classOf(std::size_t size) {
    return (size + kOverhead - 1) / kGrain;
}
constexpr std::size_t sizeOf(std::size_t sizeClass) {
    return (sizeClass + 1) * kGrain - kOverhead;
}

struct Block {
    Block* next;
};

class KeptBlocks {
  public:
    constexpr KeptBlocks() = default;
    ~KeptBlocks() = default;
    KeptBlocks(const KeptBlocks&) = delete;
    KeptBlocks& operator=(const KeptBlocks&) = delete;
    // Frees all kept blocks and keeps none from now on: the lock stays taken.
    void close() {
        if (!isBusy_.test_and_set(std::memory_order_acquire)) {
            keep(false);
        }
    }

    // Returns a kept block. Returns null if there is none, or if another thread is in here, since
    // no thread waits.
    void* take(std::size_t sizeClass) {
        const Entry entry(*this);
        if (!entry || lists_[sizeClass] == nullptr) {
            return nullptr;
        }
        Block* const block = lists_[sizeClass];
        lists_[sizeClass] = block->next;
        room_ += sizeOf(sizeClass);
        return block;
    }

    // Keeps the block. Returns false if the block is not kept; the caller must free it then.
    bool give(void* memory, std::size_t sizeClass) {
        const Entry entry(*this);
        if (!entry || room_ < sizeOf(sizeClass)) {
            return false;
        }
        room_ -= sizeOf(sizeClass);
        auto* const block = static_cast<Block*>(memory);
        block->next = lists_[sizeClass];
        lists_[sizeClass] = block;
        return true;
    }

    // Frees all kept blocks, unless another thread is in here.
    void release() {
        const Entry entry(*this);
        if (entry) {
            freeAll();
        }
    }

    // Frees all kept blocks, and sets whether blocks are kept. No other thread may be in here.
    void keep(bool isWanted) {
        freeAll();
        room_ = isWanted ? kMostKeptBytes : 0;
    }

  private:
    // Excludes other threads during its life. Converts to false if another thread is in here.
    class Entry {
      public:
        explicit Entry(KeptBlocks& blocks)
            : blocks_(blocks),
              isGranted_(!blocks.isBusy_.test_and_set(std::memory_order_acquire)) {}
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;
        ~Entry() {
            if (isGranted_) {
                blocks_.isBusy_.clear(std::memory_order_release);
            }
        }

        explicit operator bool() const { return isGranted_; }

      private:
        KeptBlocks& blocks_;
        const bool isGranted_;
    };

    void freeAll() {
        for (std::size_t sizeClass = 0; sizeClass < kClasses; ++sizeClass) {
            while (lists_[sizeClass] != nullptr) {
                Block* const next = lists_[sizeClass]->next;
                std::free(lists_[sizeClass]);
                lists_[sizeClass] = next;
                room_ += sizeOf(sizeClass);
            }
        }
    }

    std::atomic_flag isBusy_ = ATOMIC_FLAG_INIT;

    // The members below are protected by isBusy_.
    Block* lists_[kClasses] = {};
    std::size_t room_ = kMostKeptBytes;  // The bytes of blocks that may still be kept.
};

// The blocks outlive the variables of this library, since objects may be destroyed after them.
KeptBlocks g_blocks;

struct Unloading {
    Unloading() = default;
    Unloading(const Unloading&) = delete;
    Unloading& operator=(const Unloading&) = delete;
    ~Unloading() { g_blocks.close(); }
} g_unloading;

// A sanitizer detects the use of a destroyed object only if its memory is freed.
#ifdef QV_SANITIZED
constexpr bool kIsWatched = true;
#else
constexpr bool kIsWatched = false;
#endif

}  // namespace

void* allocateObject(std::size_t size) {
    const std::size_t sizeClass = classOf(size);
    if (kIsWatched || sizeClass >= kClasses) {
        return std::malloc(size);
    }
    void* const kept = g_blocks.take(sizeClass);
    return kept != nullptr ? kept : std::malloc(sizeOf(sizeClass));
}

void freeObject(void* memory, std::size_t size) {
    const std::size_t sizeClass = classOf(size);
    if (kIsWatched || sizeClass >= kClasses || !g_blocks.give(memory, sizeClass)) {
        std::free(memory);
    }
}

void keepFreedObjects(bool keep) {
    g_blocks.keep(keep);
}

}  // namespace cf

void QvCFFreeKeptObjects() {
    cf::g_blocks.release();
}
