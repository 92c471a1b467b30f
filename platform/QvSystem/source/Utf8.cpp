// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/Utf8.h"

#include <algorithm>

namespace qv::system {
namespace {

constexpr std::size_t kLongestCharacter = 4;

unsigned char byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// Returns the length that the lead byte of a character announces, or 0 for any other byte.
std::size_t announcedLength(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 3;
    }
    return lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
}

// The second byte's range keeps out overlong forms, surrogates and values past U+10FFFF.
bool canBeSecond(unsigned char lead, unsigned char second) {
    const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    return second >= low && second <= high;
}

}  // namespace

Utf8Character firstCharacter(std::string_view text) {
    const unsigned char lead = byteAt(text, 0);
    const std::size_t length = announcedLength(lead);
    if (length <= 1) {
        return {1, lead, length == 1};
    }
    std::uint32_t codePoint = lead & (0x7FU >> length);
    for (std::size_t index = 1; index < length; ++index) {
        if (index == text.size() || !isContinuation(byteAt(text, index)) ||
            (index == 1 && !canBeSecond(lead, byteAt(text, index)))) {
            return {index, 0, false};
        }
        codePoint = codePoint << 6 | (byteAt(text, index) & 0x3FU);
    }
    return {length, codePoint, true};
}

bool isUtf8(std::string_view text) {
    for (;;) {
        // Most texts are ASCII.
        const auto* const other = std::find_if_not(text.begin(), text.end(), [](char byte) {
            return static_cast<unsigned char>(byte) < 0x80;
        });
        text.remove_prefix(static_cast<std::size_t>(other - text.begin()));
        if (text.empty()) {
            return true;
        }
        const Utf8Character character = firstCharacter(text);
        if (!character.isWellFormed) {
            return false;
        }
        text.remove_prefix(character.length);
    }
}

std::string withReplacements(std::string_view text) {
    std::string replaced;
    replaced.reserve(text.size());
    while (!text.empty()) {
        const Utf8Character character = firstCharacter(text);
        replaced += character.isWellFormed ? text.substr(0, character.length) : "\xEF\xBF\xBD";
        text.remove_prefix(character.length);
    }
    return replaced;
}

std::string_view wholeCharacters(std::string_view text) {
    const std::size_t longest = std::min(text.size(), kLongestCharacter - 1);
    for (std::size_t count = 1; count <= longest; ++count) {
        const unsigned char byte = byteAt(text, text.size() - count);
        if (!isContinuation(byte)) {
            return announcedLength(byte) > count ? text.substr(0, text.size() - count) : text;
        }
    }
    return text;
}

}  // namespace qv::system
