// SPDX-License-Identifier: Apache-2.0

#include "server/HeapMemory.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <vector>

namespace qv::host {
namespace {

// Other systems and the sanitizers have allocators of their own.
#if defined(__GLIBC__) && !defined(QV_SANITIZED)

constexpr std::size_t kMebibyte = std::size_t{1024} * 1024;

// Returns the memory of the process that is in use, in bytes.
std::size_t residentBytes() {
    std::ifstream sizes("/proc/self/statm");
    std::size_t all = 0;
    std::size_t resident = 0;
    sizes >> all >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

void useAndFree(std::size_t size) {
    std::vector<char> piece(size);
    std::fill(piece.begin(), piece.end(), 'x');
}

TEST(HeapMemory, LargePieceGoesBackAtOnce) {
    giveBackLargePieces();
    const std::size_t before = residentBytes();
    // The allocator raises its bound, if it may, when it frees the first piece.
    useAndFree(24 * kMebibyte);
    useAndFree(20 * kMebibyte);
    EXPECT_LT(residentBytes(), before + 8 * kMebibyte);
}

TEST(HeapMemory, SmallPiecesGoBackOnRequest) {
    std::vector<std::unique_ptr<char[]>> pieces(20'000);
    for (std::unique_ptr<char[]>& piece : pieces) {
        piece = std::make_unique<char[]>(1024);
    }
    const std::size_t full = residentBytes();
    // The pieces that stay keep the end of the heap from going back by itself.
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (i % 64 != 0) {
            pieces[i].reset();
        }
    }
    EXPECT_GT(residentBytes(), full - 4 * kMebibyte);
    giveBackFreeMemory();
    EXPECT_LT(residentBytes(), full - 12 * kMebibyte);
}

#endif

}  // namespace
}  // namespace qv::host
