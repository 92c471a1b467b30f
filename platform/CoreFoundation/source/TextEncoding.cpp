// SPDX-License-Identifier: Apache-2.0

#include "TextEncoding.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "Refusal.h"
#include "Text.h"
#include "Unicode.h"

namespace cf {
namespace {

using namespace std::string_view_literals;

constexpr const char* kUnknownEncoding = "unknown text encoding";
constexpr const char* kNotWellFormed = "text not well-formed in its encoding";

// Registered names and usual aliases of an encoding, separated by spaces. Names that differ only in
// signs are listed once.
using Names = std::string_view;

constexpr std::string_view kUtf8Name = "UTF-8";

constexpr Names kLatin1Names =
    "ISO-8859-1 ISO_8859-1:1987 iso-ir-100 latin1 l1 IBM819 cp819 csISOLatin1 US-ASCII ascii us "
    "ANSI_X3.4-1968 ANSI_X3.4-1986 ISO_646.irv:1991 ISO646-US iso-ir-6 IBM367 cp367 csASCII";

// Encodings with units of more than one byte. A declaration that can be read byte by byte is not in
// any of them.
constexpr Names kWideNames =
    "UTF-16 UTF-16BE UTF-16LE csUTF16 csUTF16BE csUTF16LE UTF-32 UTF-32BE UTF-32LE csUTF32 "
    "csUTF32BE csUTF32LE ISO-10646-UCS-2 UCS-2 UCS-2BE UCS-2LE csUnicode ISO-10646-UCS-4 UCS-4 "
    "UCS-4BE UCS-4LE csUCS4 ISO-10646-UTF-16 unicode";

struct CharacterSet {
    const char* converter;
    Names names;
};

// clang-format off
constexpr CharacterSet kCharacterSets[] = {
    {"UTF-8", "unicode-1-1-utf-8"},
    {"UTF-7", "UTF-7 csUTF7 UNICODE-1-1-UTF-7 csUnicode11UTF7"},

    {"ISO-8859-2",  "ISO-8859-2 ISO_8859-2:1987 iso-ir-101 latin2 l2 csISOLatin2"},
    {"ISO-8859-3",  "ISO-8859-3 ISO_8859-3:1988 iso-ir-109 latin3 l3 csISOLatin3"},
    {"ISO-8859-4",  "ISO-8859-4 ISO_8859-4:1988 iso-ir-110 latin4 l4 csISOLatin4"},
    {"ISO-8859-5",  "ISO-8859-5 ISO_8859-5:1988 iso-ir-144 cyrillic csISOLatinCyrillic"},
    {"ISO-8859-6",  "ISO-8859-6 ISO_8859-6:1987 iso-ir-127 arabic ECMA-114 ASMO-708 "
                    "csISOLatinArabic ISO-8859-6-E csISO88596E ISO-8859-6-I csISO88596I"},
    {"ISO-8859-7",  "ISO-8859-7 ISO_8859-7:1987 iso-ir-126 greek greek8 ECMA-118 ELOT_928 "
                    "csISOLatinGreek"},
    {"ISO-8859-8",  "ISO-8859-8 ISO_8859-8:1988 iso-ir-138 hebrew csISOLatinHebrew ISO-8859-8-E "
                    "csISO88598E ISO-8859-8-I csISO88598I"},
    {"ISO-8859-9",  "ISO-8859-9 ISO_8859-9:1989 iso-ir-148 latin5 l5 csISOLatin5"},
    {"ISO-8859-10", "ISO-8859-10 ISO_8859-10:1992 iso-ir-157 latin6 l6 csISOLatin6"},
    {"ISO-8859-11", "ISO-8859-11"},
    {"ISO-8859-13", "ISO-8859-13 latin7 l7 csISO885913"},
    {"ISO-8859-14", "ISO-8859-14 ISO_8859-14:1998 iso-ir-199 iso-celtic latin8 l8 csISO885914"},
    {"ISO-8859-15", "ISO-8859-15 Latin-9 csISO885915"},
    {"ISO-8859-16", "ISO-8859-16 ISO_8859-16:2001 iso-ir-226 latin10 l10 csISO885916"},

    {"CP874",  "windows-874 cp874 IBM874 cswindows874"},
    {"CP1250", "windows-1250 cp1250 x-cp1250 cswindows1250"},
    {"CP1251", "windows-1251 cp1251 x-cp1251 cswindows1251"},
    {"CP1252", "windows-1252 cp1252 x-cp1252 cswindows1252"},
    {"CP1253", "windows-1253 cp1253 x-cp1253 cswindows1253"},
    {"CP1254", "windows-1254 cp1254 x-cp1254 cswindows1254"},
    {"CP1255", "windows-1255 cp1255 x-cp1255 cswindows1255"},
    {"CP1256", "windows-1256 cp1256 x-cp1256 cswindows1256"},
    {"CP1257", "windows-1257 cp1257 x-cp1257 cswindows1257"},
    {"CP1258", "windows-1258 cp1258 x-cp1258 cswindows1258"},

    {"CP437", "IBM437 cp437 437 csPC8CodePage437"},
    {"CP737", "IBM737 cp737"},
    {"CP775", "IBM775 cp775 csPC775Baltic"},
    {"CP850", "IBM850 cp850 850 csPC850Multilingual"},
    {"CP852", "IBM852 cp852 852 csPCp852"},
    {"CP855", "IBM855 cp855 855 csIBM855"},
    {"CP857", "IBM857 cp857 857 csIBM857"},
    {"CP858", "IBM00858 CCSID00858 CP00858 PC-Multilingual-850+euro csIBM00858"},
    {"CP860", "IBM860 cp860 860 csIBM860"},
    {"CP861", "IBM861 cp861 861 cp-is csIBM861"},
    {"CP862", "IBM862 cp862 862 csPC862LatinHebrew"},
    {"CP863", "IBM863 cp863 863 csIBM863"},
    {"CP864", "IBM864 cp864 csIBM864"},
    {"CP865", "IBM865 cp865 865 csIBM865"},
    {"CP866", "IBM866 cp866 866 csIBM866"},
    {"CP869", "IBM869 cp869 869 cp-gr csIBM869"},

    {"KOI8-R", "KOI8-R koi8 csKOI8R"},
    {"KOI8-U", "KOI8-U csKOI8U"},

    {"MAC-CENTRALEUROPE", "x-mac-centraleurroman x-mac-ce"},
    {"MACCYRILLIC",       "x-mac-cyrillic"},

    {"TIS-620", "TIS-620 csTIS620"},
    {"VISCII",  "VISCII csVISCII"},

    // CP932 has a backslash where Shift_JIS proper has a yen sign. Documents mean the backslash.
    {"CP932",         "Shift_JIS sjis x-sjis MS_Kanji csShiftJIS Windows-31J cp932 ms932 "
                      "windows-932 csWindows31J"},
    {"EUC-JP",        "EUC-JP x-euc-jp Extended_UNIX_Code_Packed_Format_for_Japanese "
                      "csEUCPkdFmtJapanese"},
    {"ISO-2022-JP",   "ISO-2022-JP csISO2022JP"},
    {"ISO-2022-JP-2", "ISO-2022-JP-2 csISO2022JP2"},

    {"GB2312",          "GB2312 EUC-CN x-euc-cn csGB2312"},
    {"GBK",             "GBK x-gbk cp936 ms936 windows-936 csGBK"},
    {"GB18030",         "GB18030 csGB18030"},
    {"HZ",              "HZ-GB-2312"},
    {"ISO-2022-CN",     "ISO-2022-CN csISO2022CN"},
    {"ISO-2022-CN-EXT", "ISO-2022-CN-EXT csISO2022CNEXT"},

    {"BIG5",       "Big5 cn-big5 x-x-big5 csBig5"},
    {"CP950",      "cp950 windows-950"},
    {"BIG5-HKSCS", "Big5-HKSCS csBig5HKSCS"},
    {"EUC-TW",     "EUC-TW x-euc-tw"},

    {"EUC-KR",      "EUC-KR csEUCKR"},
    {"CP949",       "KS_C_5601-1987 KS_C_5601-1989 KSC_5601 iso-ir-149 korean csKSC56011987 cp949 "
                    "windows-949 uhc"},
    {"ISO-2022-KR", "ISO-2022-KR csISO2022KR"},
};
// clang-format on

char lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

// Yields the letters and digits of the name of an encoding in lower case, without leading zeros of
// numbers. Two names are the same if these are equal, so a damaged sign in a declaration seldom
// makes a file unreadable.
class LettersAndDigits {
  public:
    explicit LettersAndDigits(std::string_view name) : rest_(name) {}

    // Returns the next letter or digit, or NUL at the end of the name.
    char next() {
        while (!rest_.empty()) {
            const char character = lower(rest_.front());
            rest_.remove_prefix(1);
            const bool isNextDigit = !rest_.empty() && isDigit(rest_.front());
            if (character == '0' && !isInNumber_ && isNextDigit) {
                continue;
            }
            isInNumber_ = isDigit(character);
            if (isInNumber_ || (character >= 'a' && character <= 'z')) {
                return character;
            }
        }
        return '\0';
    }

  private:
    std::string_view rest_;
    bool isInNumber_ = false;
};

bool isSameName(std::string_view one, std::string_view other) {
    LettersAndDigits ofOne(one);
    LettersAndDigits ofOther(other);
    for (;;) {
        const char next = ofOne.next();
        if (next != ofOther.next()) {
            return false;
        }
        if (next == '\0') {
            return true;
        }
    }
}

bool contains(Names names, std::string_view name) {
    while (!names.empty()) {
        const std::string_view first = names.substr(0, names.find(' '));
        if (isSameName(first, name)) {
            return true;
        }
        names.remove_prefix(std::min(first.size() + 1, names.size()));
    }
    return false;
}

std::uint32_t byteAt(std::string_view bytes, std::size_t index) {
    return static_cast<unsigned char>(bytes[index]);
}

enum class ByteOrder { kLittleEndian, kBigEndian };

template <std::size_t kSize>
std::uint32_t unitAt(std::string_view bytes, std::size_t index, ByteOrder order) {
    std::uint32_t unit = 0;
    for (std::size_t place = 0; place < kSize; ++place) {
        const std::size_t offset = order == ByteOrder::kBigEndian ? place : kSize - 1 - place;
        unit = unit << 8U | byteAt(bytes, index * kSize + offset);
    }
    return unit;
}

class Decoder {
  public:
    Decoder(DecodedText& text, const char** reason)
        : text_(text), converted_(text.converted), reason_(reason) {
        converted_.shrinkTo(0);
        text_.units.shrinkTo(0);
    }

    bool decode(std::string_view bytes);

  private:
    bool decodeNamed(std::string_view name, std::string_view bytes);
    bool decodeUtf8(std::string_view bytes);
    bool decodeUtf16(std::string_view bytes, ByteOrder order);
    bool decodeUtf32(std::string_view bytes, ByteOrder order);
    bool decodeLatin1(std::string_view bytes);
    bool decodeWith(const char* converter, std::string_view bytes);
    bool convert(iconv_t converter, std::string_view bytes);

    bool reserve(std::size_t count) { return converted_.reserve(count) || fail(kOutOfMemory); }

    void append(std::uint32_t codePoint) {
        char* const start = converted_.end();
        converted_.advance(static_cast<std::size_t>(writeUtf8(codePoint, start) - start));
    }

    bool succeed() {
        text_.utf8 = {converted_.data(), converted_.size()};
        return true;
    }

    bool fail(const char* reason) {
        *reason_ = reason;
        return false;
    }

    DecodedText& text_;
    Buffer<char>& converted_;
    const char** reason_;
};

// Returns the name of the encoding in the declaration at the start of the bytes, or that of UTF-8
// if there is none.
std::string_view declaredEncoding(std::string_view bytes) {
    constexpr std::string_view kDeclaration = "<?xml";
    constexpr std::string_view kAttribute = "encoding=";
    if (!startsWith(bytes, kDeclaration)) {
        return kUtf8Name;
    }

    bytes.remove_prefix(kDeclaration.size());
    while (!startsWith(bytes, kAttribute)) {
        // The rest is too short for the attribute and a quotation mark.
        if (bytes.size() <= kAttribute.size() || bytes[0] == '?' || bytes[0] == '>') {
            return kUtf8Name;
        }
        bytes.remove_prefix(1);
    }
    bytes.remove_prefix(kAttribute.size());

    if (bytes.empty() || (bytes[0] != '\'' && bytes[0] != '"')) {
        return kUtf8Name;
    }
    const std::size_t end = bytes.find(bytes[0], 1);
    return end == std::string_view::npos ? kUtf8Name : bytes.substr(1, end - 1);
}

bool Decoder::decode(std::string_view bytes) {
    if (bytes.size() > 4) {
        if (startsWith(bytes, "\0\0\xFE\xFF"sv)) {
            return decodeUtf32(bytes.substr(4), ByteOrder::kBigEndian);
        }
        if (startsWith(bytes, "\xFF\xFE\0\0"sv)) {
            return decodeUtf32(bytes.substr(4), ByteOrder::kLittleEndian);
        }
    }
    if (bytes.size() > 3 && startsWith(bytes, kUtf8Mark)) {
        return decodeUtf8(bytes.substr(kUtf8Mark.size()));
    }
    if (bytes.size() > 2) {
        if (startsWith(bytes, "\xFE\xFF")) {
            return decodeUtf16(bytes.substr(2), ByteOrder::kBigEndian);
        }
        if (startsWith(bytes, "\xFF\xFE") || bytes[0] == '\0' || bytes[1] == '\0') {
            return decodeUtf16(bytes.substr(2), ByteOrder::kLittleEndian);
        }
    }
    return decodeNamed(declaredEncoding(bytes), bytes);
}

bool Decoder::decodeNamed(std::string_view name, std::string_view bytes) {
    if (isSameName(name, kUtf8Name)) {
        return decodeUtf8(bytes);
    }
    if (contains(kLatin1Names, name)) {
        return decodeLatin1(bytes);
    }
    if (contains(kWideNames, name)) {
        return fail(kNotWellFormed);
    }
    for (const CharacterSet& set : kCharacterSets) {
        if (contains(set.names, name)) {
            return decodeWith(set.converter, bytes);
        }
    }
    return fail(kUnknownEncoding);
}

bool Decoder::decodeUtf8(std::string_view bytes) {
    text_.utf8 = bytes;
    return true;
}

bool Decoder::decodeUtf16(std::string_view bytes, ByteOrder order) {
    const std::size_t count = bytes.size() / 2;
    Buffer<UniChar>& units = text_.units;
    if (!units.reserve(count) || !reserve(count * 3)) {
        return fail(kOutOfMemory);
    }
    for (std::size_t index = 0; index < count; ++index) {
        units.append(static_cast<UniChar>(unitAt<2>(bytes, index, order)));
    }
    const std::size_t wellFormed = wellFormedPrefix(units.data(), count);
    char* const end = utf16ToUtf8(units.data(), wellFormed, converted_.end());
    converted_.advance(static_cast<std::size_t>(end - converted_.end()));
    return succeed();
}

bool Decoder::decodeUtf32(std::string_view bytes, ByteOrder order) {
    const std::size_t count = bytes.size() / 4;
    if (!reserve(count * 4)) {
        return false;
    }
    for (std::size_t index = 0; index < count; ++index) {
        const std::uint32_t codePoint = unitAt<4>(bytes, index, order);
        if (codePoint > kLastCodePoint || isSurrogate(codePoint)) {
            return fail(kNotWellFormed);
        }
        append(codePoint);
    }
    return succeed();
}

bool Decoder::decodeLatin1(std::string_view bytes) {
    if (!reserve(bytes.size() * 2)) {
        return false;
    }
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        append(byteAt(bytes, index));
    }
    return succeed();
}

bool Decoder::decodeWith(const char* converter, std::string_view bytes) {
    iconv_t handle = ::iconv_open("UTF-8", converter);
    if (reinterpret_cast<std::intptr_t>(handle) == -1) {
        return fail(errno == ENOMEM ? kOutOfMemory : kUnknownEncoding);
    }
    const bool converted = convert(handle, bytes);
    ::iconv_close(handle);
    return converted && succeed();
}

bool Decoder::convert(iconv_t converter, std::string_view bytes) {
    // The room for the bytes of at least one character in any encoding.
    constexpr std::size_t kLeastRoom = 64;

    // iconv() takes no constant bytes, but does not write to them.
    char* input = const_cast<char*>(bytes.data());
    std::size_t left = bytes.size();
    bool flushing = false;
    while (true) {
        const std::size_t room = left + kLeastRoom;
        if (!reserve(room)) {
            return false;
        }
        char* output = converted_.end();
        std::size_t free = room;
        const std::size_t result =
            ::iconv(converter, flushing ? nullptr : &input, &left, &output, &free);
        const int error = errno;
        converted_.advance(room - free);
        if (result != static_cast<std::size_t>(-1)) {
            if (flushing) {
                return true;
            }
            flushing = true;
        } else if (error != E2BIG) {
            return fail(error == ENOMEM ? kOutOfMemory : kNotWellFormed);
        }
    }
}

}  // namespace

bool decodeText(std::string_view bytes, DecodedText& text, const char** reason) {
    return Decoder(text, reason).decode(bytes);
}

bool provideUnits(DecodedText& text, const char** reason) {
    if (text.units.size() != 0) {
        return true;
    }
    const std::size_t count = utf16Length(text.utf8);
    if (count == kIllFormed) {
        *reason = "text that is not well-formed UTF-8";
        return false;
    }
    if (!text.units.reserve(count)) {
        *reason = kOutOfMemory;
        return false;
    }
    utf8ToUtf16(text.utf8, text.units.end());
    text.units.advance(count);
    return true;
}

}  // namespace cf
