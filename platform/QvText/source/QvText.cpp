#include "QvText.h"

#include <algorithm>
#include <cstddef>

namespace qv::text {
namespace {

unsigned char byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

// Length of the well-formed UTF-8 sequence that a non-empty text starts with; 0 when there is none.
std::size_t sequenceLength(std::string_view text) {
    const unsigned char lead = byteAt(text, 0);
    if (lead < 0x80) {
        return 1;
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
        return 0;
    }

    // The second byte's range keeps out overlong forms, surrogates and values past U+10FFFF.
    const unsigned char second = byteAt(text, 1);
    const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (second < low || second > high) {
        return 0;
    }
    for (std::size_t index = 2; index < length; ++index) {
        if ((byteAt(text, index) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return length;
}

bool isControl(std::string_view sequence) {
    const unsigned char lead = byteAt(sequence, 0);
    return lead < 0x20 || lead == 0x7F || (lead == 0xC2 && byteAt(sequence, 1) < 0xA0);
}

// Characters that show nothing, but separate lines or turn the direction of the text around them:
// U+200E and U+200F, U+2028 to U+202E, U+2066 to U+2069.
bool isLayout(std::string_view sequence) {
    if (sequence.size() != 3 || byteAt(sequence, 0) != 0xE2) {
        return false;
    }
    const unsigned char second = byteAt(sequence, 1);
    const unsigned char third = byteAt(sequence, 2);
    return (second == 0x80 &&
            (third == 0x8E || third == 0x8F || (third >= 0xA8 && third <= 0xAE))) ||
           (second == 0x81 && third >= 0xA6 && third <= 0xA9);
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
        default:
            out += "\\x";
            out += digits[byte >> 4];
            out += digits[byte & 0x0F];
    }
}

}  // namespace

void appendEscaped(std::string& out, std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = sequenceLength(text);
        const std::string_view sequence = text.substr(0, std::max<std::size_t>(length, 1));
        if (length == 0 || isControl(sequence) || isLayout(sequence)) {
            for (const char byte : sequence) {
                appendEscapedByte(out, static_cast<unsigned char>(byte));
            }
        } else {
            out += sequence;
        }
        text.remove_prefix(sequence.size());
    }
}

std::string escaped(std::string_view text) {
    std::string out;
    appendEscaped(out, text);
    return out;
}

}  // namespace qv::text
