// SPDX-License-Identifier: Apache-2.0

// Reads numbers and texts from the front of a fuzzer's bytes. After the end, a number is 0 and a
// text is empty.
#ifndef QV_FUZZ_INPUT_H
#define QV_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qv::fuzz {

class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size)
        : rest_(reinterpret_cast<const char*>(data), size) {}

    bool isEmpty() const { return rest_.empty(); }

    std::uint8_t byte() {
        if (rest_.empty()) {
            return 0;
        }
        const auto byte = static_cast<std::uint8_t>(rest_.front());
        rest_.remove_prefix(1);
        return byte;
    }

    // Reads a number from -128 to 127.
    std::int32_t number() { return static_cast<std::int8_t>(byte()); }

    // Reads a byte for the length, and a text of that length.
    std::string text() { return take(byte()); }

    // Reads two bytes for the length, the high one first, and a text of that length.
    std::string longText() {
        const std::size_t high = byte();
        return take(high << 8 | byte());
    }

    std::string rest() { return take(rest_.size()); }

  private:
    std::string take(std::size_t size) {
        std::string text(rest_.substr(0, size));
        rest_.remove_prefix(std::min(size, rest_.size()));
        return text;
    }

    std::string_view rest_;
};

}  // namespace qv::fuzz

#endif  // QV_FUZZ_INPUT_H
