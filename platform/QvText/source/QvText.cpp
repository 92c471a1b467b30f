#include "QvText.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace qv::text {
namespace {

// The character that a text starts with; of no length where its bytes are no well-formed UTF-8.
struct Character {
    std::size_t length;
    std::uint32_t codePoint;
};

constexpr Character illFormed{0, 0};

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

// In ascending order: controls, characters of format, those that are not shown where they are
// unknown, and numbers that are no characters, besides the last two of each plane.
constexpr Range unseen[] = {
    {0x00, 0x1F},       {0x7F, 0x9F},       {0xAD, 0xAD},       {0x34F, 0x34F},
    {0x61C, 0x61C},     {0x115F, 0x1160},   {0x17B4, 0x17B5},   {0x180B, 0x180F},
    {0x200B, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x206F},   {0x3164, 0x3164},
    {0xFDD0, 0xFDEF},   {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0},
    {0xFFF0, 0xFFFB},   {0x13430, 0x1343F}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A},
    {0xE0000, 0xE0FFF},
};

unsigned char byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

Character firstCharacter(std::string_view text) {
    const unsigned char lead = byteAt(text, 0);
    if (lead < 0x80) {
        return {1, lead};
    }

    std::size_t length = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
    }
    if (length == 0 || text.size() < length) {
        return illFormed;
    }

    // The second byte's range keeps out overlong forms, surrogates and values past U+10FFFF.
    const unsigned char second = byteAt(text, 1);
    const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (second < low || second > high) {
        return illFormed;
    }
    std::uint32_t codePoint = lead & (0x7FU >> length);
    for (std::size_t index = 1; index < length; ++index) {
        if ((byteAt(text, index) & 0xC0) != 0x80) {
            return illFormed;
        }
        codePoint = codePoint << 6 | (byteAt(text, index) & 0x3FU);
    }
    return {length, codePoint};
}

bool isUnseen(std::uint32_t codePoint) {
    // Most text needs no search.
    if (codePoint >= 0x20 && codePoint < 0x7F) {
        return false;
    }
    const Range* const range =
        std::lower_bound(std::begin(unseen), std::end(unseen), codePoint,
                         [](const Range& each, std::uint32_t value) { return each.last < value; });
    return (range != std::end(unseen) && range->first <= codePoint) ||
           (codePoint & 0xFFFE) == 0xFFFE;
}

void appendEscapedByte(std::string& out, unsigned char byte) {
    static constexpr char digits[] = "0123456789abcdef";
    switch (byte) {
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\\':
            out += "\\\\";
            break;
        default:
            out += "\\x";
            out += digits[byte >> 4];
            out += digits[byte & 0x0F];
    }
}

}  // namespace

void appendEscaped(std::string& out, std::string_view text) {
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        const std::string_view bytes = text.substr(0, std::max<std::size_t>(character.length, 1));
        if (character.length == 0 || character.codePoint == '\\' || isUnseen(character.codePoint)) {
            for (const char byte : bytes) {
                appendEscapedByte(out, static_cast<unsigned char>(byte));
            }
        } else {
            out += bytes;
        }
        text.remove_prefix(bytes.size());
    }
}

std::string escaped(std::string_view text) {
    std::string out;
    appendEscaped(out, text);
    return out;
}

}  // namespace qv::text
