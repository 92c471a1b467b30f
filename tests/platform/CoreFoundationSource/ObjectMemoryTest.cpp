// SPDX-License-Identifier: Apache-2.0

#include "ObjectMemory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>  // defines __GLIBC__
#include <cstring>
#include <thread>
#include <vector>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

// Sizes around the limits of the classes, and one that is never kept.
constexpr std::size_t kSizes[] = {0,  1,  8,  23, 24, 25, 40, 41,  56,
                                  57, 72, 73, 87, 88, 89, 90, 5000};

class ObjectMemory : public testing::Test {
  protected:
    void TearDown() override { cf::keepFreedObjects(true); }
};

void fillAndFree(void* memory, std::size_t size, int byte) {
    std::memset(memory, byte, size);
    cf::freeObject(memory, size);
}

// Allocates blocks of all sizes, fills them, and checks that no other block changed them.
void allocateAndFree(int byte, int rounds) {
    for (int round = 0; round < rounds; ++round) {
        std::vector<void*> blocks;
        for (const std::size_t size : kSizes) {
            blocks.push_back(cf::allocateObject(size));
            ASSERT_NE(blocks.back(), nullptr);
            std::memset(blocks.back(), byte, size);
        }
        std::size_t at = 0;
        for (const std::size_t size : kSizes) {
            const auto* const bytes = static_cast<const unsigned char*>(blocks[at]);
            for (std::size_t index = 0; index < size; ++index) {
                ASSERT_EQ(bytes[index], byte);
            }
            fillAndFree(blocks[at], size, byte);
            ++at;
        }
    }
}

TEST_F(ObjectMemory, BelongsToOneObjectAtATime) {
    allocateAndFree(0x5A, 100);
}

TEST_F(ObjectMemory, BelongsToOneThreadAtATime) {
    std::vector<std::thread> threads;
    for (int byte = 1; byte <= 8; ++byte) {
        threads.emplace_back([byte] { allocateAndFree(byte, 500); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(ObjectMemory, MayBeFreedByAnotherThread) {
    std::vector<void*> blocks(1000);
    for (void*& block : blocks) {
        block = cf::allocateObject(40);
    }
    std::thread([&blocks] {
        for (void* const block : blocks) {
            fillAndFree(block, 40, 1);
        }
    }).join();
    allocateAndFree(2, 10);
}

TEST_F(ObjectMemory, BlocksBeyondTheLimitAreFreed) {
    std::vector<void*> blocks(100'000);
    for (void*& block : blocks) {
        block = cf::allocateObject(88);
    }
    for (void* const block : blocks) {
        fillAndFree(block, 88, 1);
    }
    allocateAndFree(2, 10);
}

// Other systems and the sanitizers have allocators of their own.
#if defined(__GLIBC__) && !defined(QV_SANITIZED)
TEST_F(ObjectMemory, KeptBlocksAreFreedOnRequest) {
    for (int round = 0; round < 2; ++round) {
        std::vector<void*> blocks(1000);
        for (void*& block : blocks) {
            block = cf::allocateObject(88);
        }
        const std::size_t inUse = mallinfo2().uordblks;
        for (void* const block : blocks) {
            fillAndFree(block, 88, 1);
        }
        EXPECT_EQ(mallinfo2().uordblks, inUse);
        QvCFFreeKeptObjects();
        EXPECT_LT(mallinfo2().uordblks, inUse - 500 * std::size_t{88});
    }
}
#endif

TEST_F(ObjectMemory, WorksWithoutKeptBlocks) {
    void* const before = cf::allocateObject(24);
    fillAndFree(before, 24, 1);
    cf::keepFreedObjects(false);
    allocateAndFree(2, 10);
}

}  // namespace
