// SPDX-License-Identifier: Apache-2.0

#include "QvText.h"

#include <QvSystem/Utf8.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace qv::text {
namespace {

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

bool isUnseen(std::uint32_t codePoint) {
    const Range* const range =
        std::lower_bound(std::begin(unseen), std::end(unseen), codePoint,
                         [](const Range& each, std::uint32_t value) { return each.last < value; });
    return (range != std::end(unseen) && range->first <= codePoint) ||
           (codePoint & 0xFFFE) == 0xFFFE;
}

// Returns the number of bytes at the beginning that stand as they are, as most text does.
std::size_t plainLength(std::string_view text) {
    const auto end = std::find_if(text.begin(), text.end(), [](char character) {
        return character < 0x20 || character >= 0x7F || character == '\\';
    });
    return static_cast<std::size_t>(end - text.begin());
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
    while (true) {
        const std::string_view plain = text.substr(0, plainLength(text));
        out += plain;
        text.remove_prefix(plain.size());
        if (text.empty()) {
            return;
        }
        const system::Utf8Character character = system::firstCharacter(text);
        const std::string_view bytes = text.substr(0, character.length);
        if (!character.isWellFormed || character.codePoint == '\\' ||
            isUnseen(character.codePoint)) {
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

std::string printable(std::string_view text) {
    std::string line;
    for (std::size_t end = 0; (end = text.find('\\')) != std::string_view::npos;
         text.remove_prefix(end + 1)) {
        appendEscaped(line, text.substr(0, end));
        line += '\\';
    }
    appendEscaped(line, text);
    return line;
}

}  // namespace qv::text
