// SPDX-License-Identifier: Apache-2.0

#include "Hash.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

#ifdef __linux__
#include <sys/random.h>
#endif

namespace cf {

namespace {

struct Key {
    std::uint64_t low;
    std::uint64_t high;
};

Key makeKey() {
    Key key = {};
#ifdef __linux__
    if (getrandom(&key, sizeof key, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof key)) {
        return key;
    }
    // If the system has not gathered randomness yet, the time and an address make the key different
    // in each process.
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    key.low = static_cast<std::uint64_t>(now.tv_nsec) * 0x9E3779B97F4A7C15U;
    key.high = reinterpret_cast<std::uintptr_t>(&key) ^ key.low;
#else
    arc4random_buf(&key, sizeof key);
#endif
    return key;
}

constexpr std::uint64_t rotate(std::uint64_t word, int bits) {
    return word << bits | word >> (64 - bits);
}

struct State {
    std::uint64_t v0;
    std::uint64_t v1;
    std::uint64_t v2;
    std::uint64_t v3;

    void round() {
        v0 += v1;
        v1 = rotate(v1, 13) ^ v0;
        v0 = rotate(v0, 32);
        v2 += v3;
        v3 = rotate(v3, 16) ^ v2;
        v0 += v3;
        v3 = rotate(v3, 21) ^ v0;
        v2 += v1;
        v1 = rotate(v1, 17) ^ v2;
        v2 = rotate(v2, 32);
    }
};

}  // namespace

CFHashCode hashBytes(const void* bytes, std::size_t count) {
    static const Key key = makeKey();
    State state = {key.low ^ 0x736F6D6570736575U, key.high ^ 0x646F72616E646F6DU,
                   key.low ^ 0x6C7967656E657261U, key.high ^ 0x7465646279746573U};
    const auto take = [&state](std::uint64_t word) {
        state.v3 ^= word;
        state.round();
        state.v0 ^= word;
    };

    const auto* at = static_cast<const unsigned char*>(bytes);
    std::size_t left = count;
    for (; left >= 8; left -= 8, at += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, at, 8);
        take(word);
    }
    std::uint64_t last = 0;
    std::memcpy(&last, at, left);
    take(last | static_cast<std::uint64_t>(count) << 56);

    state.v2 ^= 0xFF;
    state.round();
    state.round();
    state.round();
    return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

}  // namespace cf
