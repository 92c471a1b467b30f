// SPDX-License-Identifier: Apache-2.0

#include "XmlValues.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#ifdef __APPLE__
#include <xlocale.h>
#else
#include <locale.h>
#endif

#include "Buffer.h"
#include "Calendar.h"
#include "Data.h"
#include "Date.h"
#include "Number.h"
#include "Refusal.h"
#include "Text.h"

namespace cf {

namespace {

// Removes the byte from the start of the text. Returns false if the text begins with another byte.
bool take(std::string_view& bytes, char byte) {
    if (bytes.empty() || bytes.front() != byte) {
        return false;
    }
    bytes.remove_prefix(1);
    return true;
}

const Object* refuse(const char** reason, const char* text) {
    *reason = text;
    return nullptr;
}

const Object* made(const Object* object, const char** reason) {
    return object == nullptr ? refuse(reason, kOutOfMemory) : object;
}

// Skips the spaces in front of an integer byte by byte, like the platform. The first byte of a wide
// space is a space only in front of the other bytes, which are spaces on their own.
void skipIntegerSpace(std::string_view& bytes) {
    while (!bytes.empty()) {
        const auto byte = static_cast<unsigned char>(bytes.front());
        const bool isSpaceByte = byte <= ' ' || (byte > 0x7E && byte < 0xA1);
        const bool startsWideSpace = (bytes.size() >= 3 && startsWith(bytes, "\xE2\x80") &&
                                      static_cast<unsigned char>(bytes[2]) >= 0x80 &&
                                      static_cast<unsigned char>(bytes[2]) <= 0x8B) ||
                                     startsWith(bytes, "\xE2\x81\x9F") ||
                                     startsWith(bytes, "\xE3\x80\x80");
        if (!isSpaceByte && !startsWideSpace) {
            return;
        }
        bytes.remove_prefix(1);
    }
}

bool readNamedReal(const String& text, double& value) {
    struct Name {
        std::string_view name;
        double value;
    };
    constexpr double kInfinity = __builtin_inf();
    constexpr Name kNames[] = {
        {"nan", __builtin_nan("")}, {"inf", kInfinity},      {"+inf", kInfinity},
        {"-inf", -kInfinity},       {"infinity", kInfinity}, {"+infinity", kInfinity},
        {"-infinity", -kInfinity},
    };
    for (const Name& name : kNames) {
        bool isEqual = name.name.size() == text.length;
        for (std::size_t at = 0; isEqual && at < text.length; ++at) {
            const UniChar unit = text.at(at);
            isEqual = (unit >= 'A' && unit <= 'Z' ? unit + 0x20 : unit) == name.name[at];
        }
        if (isEqual) {
            value = name.value;
            return true;
        }
    }
    return false;
}

bool isRealSpace(UniChar unit) {
    return unit <= ' ' || (unit > 0x7E && unit < 0xA1) || (unit >= 0x2000 && unit <= 0x200B) ||
           unit == 0x3000;
}

// Reads a decimal number of the C language from a text that ends with a NUL. The decimal point does
// not depend on the locale of the process.
bool readDecimal(const Buffer<char>& text, double& value) {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    char* end = nullptr;
    value = strtod_l(text.data(), &end, plain);
    return text.size() > 1 && end == text.data() + text.size() - 1;
}

bool takeTwoDigits(std::string_view& bytes, int& number) {
    if (bytes.size() < 2 || !isDigit(bytes[0]) || !isDigit(bytes[1])) {
        return false;
    }
    number = (bytes[0] - '0') * 10 + (bytes[1] - '0');
    bytes.remove_prefix(2);
    return true;
}

int base64Value(char byte) {
    if (byte >= 'A' && byte <= 'Z') {
        return byte - 'A';
    }
    if (byte >= 'a' && byte <= 'z') {
        return byte - 'a' + 26;
    }
    if (isDigit(byte)) {
        return byte - '0' + 52;
    }
    return byte == '+' ? 62 : byte == '/' ? 63 : byte == '=' ? 0 : -1;
}

}  // namespace

const Object* readInteger(std::string_view bytes, const char** reason) {
    skipIntegerSpace(bytes);
    const bool isNegative = take(bytes, '-');
    if (isNegative || take(bytes, '+')) {
        skipIntegerSpace(bytes);
    }
    unsigned base = 10;
    if (startsWith(bytes, "0x") || startsWith(bytes, "0X")) {
        base = 16;
        bytes.remove_prefix(2);
    }
    if (bytes.empty()) {
        return refuse(reason, "an integer without digits");
    }
    std::uint64_t magnitude = 0;
    for (const char byte : bytes) {
        const unsigned digit = hexDigit(byte);
        if (digit >= base) {
            return refuse(reason, "an integer with other characters than digits");
        }
        if (magnitude > (UINT64_MAX - digit) / base) {
            return refuse(reason, "an integer out of range");
        }
        magnitude = magnitude * base + digit;
    }
    constexpr std::uint64_t kTwoTo63 = std::uint64_t{1} << 63;
    if (!isNegative) {
        return made(makeNumber(magnitude), reason);
    }
    if (magnitude > kTwoTo63) {
        return refuse(reason, "an integer out of range");
    }
    return made(makeNumber(static_cast<std::int64_t>(0 - magnitude)), reason);
}

const Object* readReal(const String& text, const char** reason) {
    double value = 0;
    if (readNamedReal(text, value)) {
        return made(makeNumber(value), reason);
    }
    static constexpr char kNoNumber[] = "a real that is no number";
    std::size_t at = 0;
    while (at < text.length && isRealSpace(text.at(at))) {
        ++at;
    }
    Buffer<char> decimal;
    if (!decimal.reserve(text.length - at + 1)) {
        return refuse(reason, kOutOfMemory);
    }
    for (; at < text.length; ++at) {
        const UniChar unit = text.at(at);
        // strchr() also finds a NUL. The result is not a number then, since strtod() stops in front
        // of the NUL.
        if (unit > 0x7E || std::strchr("0123456789.eE+-", unit) == nullptr) {
            return refuse(reason, kNoNumber);
        }
        decimal.append(static_cast<char>(unit));
    }
    decimal.append('\0');
    return readDecimal(decimal, value) ? made(makeNumber(value), reason)
                                       : refuse(reason, kNoNumber);
}

const Object* readDate(std::string_view bytes, const char** reason) {
    const bool isNegative = take(bytes, '-');
    // A year may have any number of digits and is reduced to 32 bits, as readers have always done.
    std::uint32_t digits = 0;
    for (; !bytes.empty() && isDigit(bytes.front()); bytes.remove_prefix(1)) {
        digits = digits * 10 + static_cast<std::uint32_t>(bytes.front() - '0');
    }
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (!take(bytes, '-') || !takeTwoDigits(bytes, month) || !take(bytes, '-') ||
        !takeTwoDigits(bytes, day) || !take(bytes, 'T') || !takeTwoDigits(bytes, hour) ||
        !take(bytes, ':') || !takeTwoDigits(bytes, minute) || !take(bytes, ':') ||
        !takeTwoDigits(bytes, second) || bytes != "Z") {
        return refuse(reason, "a date of another form than 2001-01-01T00:00:00Z");
    }
    const std::int64_t year = static_cast<std::int32_t>(isNegative ? 0 - digits : digits);
    return made(
        create<Date>(kCFAllocatorDefault, 0, absoluteTime(year, month, day, hour, minute, second)),
        reason);
}

// Reads base64. A padding character counts as the value 0. The padding that ends a group of four
// shortens the bytes of the group.
const Object* readData(std::string_view bytes, const char** reason) {
    Buffer<char> contents;
    if (!contents.reserve(bytes.size() / 4 * 3)) {
        return refuse(reason, kOutOfMemory);
    }
    unsigned group = 0;
    int characters = 0;
    int padding = 0;
    for (const char byte : bytes) {
        if (static_cast<unsigned char>(byte) > 0x7F) {
            return refuse(reason, "data with other characters than ASCII");
        }
        if (byte == '=') {
            ++padding;
        } else if (byte != ' ' && (byte < '\t' || byte > '\r')) {
            padding = 0;
        }
        const int value = base64Value(byte);
        if (value < 0) {
            continue;
        }
        group = group << 6 | static_cast<unsigned>(value);
        if (++characters % 4 == 0) {
            const char three[] = {static_cast<char>(group >> 16 & 0xFF),
                                  static_cast<char>(group >> 8 & 0xFF),
                                  static_cast<char>(group & 0xFF)};
            contents.append(three, padding == 0 ? 3 : padding == 1 ? 2 : 1);
        }
    }
    return made(makeData({contents.data(), contents.size()}), reason);
}

}  // namespace cf
