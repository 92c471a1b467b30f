// SPDX-License-Identifier: Apache-2.0

#include "String.h"

#include <CoreFoundation/CFString.h>

#include <algorithm>
#include <cstring>

#include "Hash.h"
#include "TypeBehavior.h"
#include "Unicode.h"

namespace cf {

namespace {

// The contents of a string take this many bytes behind the string object.
constexpr std::size_t sizeOfAscii(std::size_t count) {
    return count + 1;
}
constexpr std::size_t sizeOfUnits(std::size_t count) {
    return count * sizeof(UniChar);
}

String* makeRoomForAscii(std::size_t count, CFAllocatorRef allocator) {
    auto* const string = create<String>(allocator, sizeOfAscii(count), count, false);
    if (string != nullptr) {
        const_cast<char*>(string->ascii())[count] = '\0';
    }
    return string;
}

char* asciiOf(String* string) {
    return const_cast<char*>(string->ascii());
}

String* makeRoomForUnits(std::size_t count, CFAllocatorRef allocator) {
    return create<String>(allocator, sizeOfUnits(count), count, true);
}

UniChar* unitsOf(String* string) {
    return const_cast<UniChar*>(string->wide());
}

void endString(Object& object, Ending& /*ending*/) {
    auto& string = static_cast<String&>(object);
    dispose(&string, string.isWide ? sizeOfUnits(string.length) : sizeOfAscii(string.length));
}

bool equalObjects(const Object* one, const Object* other, Comparison& /*comparison*/) {
    return equalStrings(*static_cast<const String*>(one), *static_cast<const String*>(other));
}

std::string_view contents(const String& string) {
    return {string.ascii(), string.isWide ? string.length * sizeof(UniChar) : string.length};
}

CFHashCode hashString(const Object* object) {
    const std::string_view bytes = contents(*static_cast<const String*>(object));
    return hashBytes(bytes.data(), bytes.size());
}

}  // namespace

const TypeBehavior kStringBehavior = {endString, equalObjects, hashString};

String* makeAsciiString(std::string_view ascii, CFAllocatorRef allocator) {
    String* const string = makeRoomForAscii(ascii.size(), allocator);
    if (string != nullptr && !ascii.empty()) {
        std::memcpy(asciiOf(string), ascii.data(), ascii.size());
    }
    return string;
}

String* makeStringFromUtf8(std::string_view utf8, CFAllocatorRef allocator) {
    const std::size_t ascii = asciiPrefix(utf8.data(), utf8.size());
    if (ascii == utf8.size()) {
        return makeAsciiString(utf8, allocator);
    }
    const std::size_t units = utf16Length(utf8);
    if (units == kIllFormed) {
        return nullptr;
    }
    String* const string = makeRoomForUnits(units, allocator);
    if (string != nullptr) {
        utf8ToUtf16(utf8, unitsOf(string));
    }
    return string;
}

String* makeStringFromMarkedUtf8(std::string_view utf8, CFAllocatorRef allocator) {
    if (utf8.substr(0, kUtf8Mark.size()) == kUtf8Mark) {
        utf8.remove_prefix(kUtf8Mark.size());
    }
    return makeStringFromUtf8(utf8, allocator);
}

String* makeStringFromLatin1(std::string_view latin1, CFAllocatorRef allocator) {
    if (asciiPrefix(latin1.data(), latin1.size()) == latin1.size()) {
        return makeAsciiString(latin1, allocator);
    }
    String* const string = makeRoomForUnits(latin1.size(), allocator);
    if (string != nullptr) {
        std::transform(latin1.begin(), latin1.end(), unitsOf(string),
                       [](char byte) { return static_cast<unsigned char>(byte); });
    }
    return string;
}

String* makeStringFromUnits(const UniChar* units, std::size_t count, CFAllocatorRef allocator) {
    if (std::all_of(units, units + count, [](UniChar unit) { return unit < 0x80; })) {
        String* const string = makeRoomForAscii(count, allocator);
        if (string != nullptr) {
            std::transform(units, units + count, asciiOf(string),
                           [](UniChar unit) { return static_cast<char>(unit); });
        }
        return string;
    }
    String* const string = makeRoomForUnits(count, allocator);
    if (string != nullptr) {
        std::copy(units, units + count, unitsOf(string));
    }
    return string;
}

bool equalStrings(const String& one, const String& other) {
    return one.length == other.length && one.isWide == other.isWide &&
           contents(one) == contents(other);
}

int compareStrings(const String& one, const String& other) {
    if (!one.isWide && !other.isWide) {
        return contents(one).compare(contents(other));
    }
    const std::size_t common = std::min(one.length, other.length);
    for (std::size_t at = 0; at < common; ++at) {
        if (one.at(at) != other.at(at)) {
            return one.at(at) < other.at(at) ? -1 : 1;
        }
    }
    return one.length == other.length ? 0 : one.length < other.length ? -1 : 1;
}

}  // namespace cf

namespace {

using cf::String;

CFStringRef asReference(const String* string) {
    return reinterpret_cast<CFStringRef>(string);
}
const String& asString(CFStringRef string) {
    return *reinterpret_cast<const String*>(string);
}

CFStringRef makeString(CFAllocatorRef allocator, std::string_view bytes,
                       CFStringEncoding encoding) {
    switch (encoding) {
        case kCFStringEncodingUTF8:
            return asReference(cf::makeStringFromMarkedUtf8(bytes, allocator));
        case kCFStringEncodingASCII:
        case kCFStringEncodingISOLatin1:
            return asReference(cf::makeStringFromLatin1(bytes, allocator));
        default:
            return nullptr;
    }
}

// Limits a range to the part that lies within `length`.
void clip(CFIndex length, CFRange& range) {
    if (range.location < 0 || range.location > length || range.length < 0) {
        range.length = 0;
    } else {
        range.length = std::min(range.length, length - range.location);
    }
}

}  // namespace

CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text,
                                      CFStringEncoding encoding) {
    return text == nullptr ? nullptr : makeString(allocator, text, encoding);
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean /*isExternal*/) {
    if (count < 0 || (bytes == nullptr && count != 0)) {
        return nullptr;
    }
    return makeString(allocator,
                      {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count)},
                      encoding);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* characters,
                                         CFIndex count) {
    if (count < 0 || (characters == nullptr && count != 0)) {
        return nullptr;
    }
    return asReference(
        cf::makeStringFromUnits(characters, static_cast<std::size_t>(count), allocator));
}

CFTypeID CFStringGetTypeID() {
    return cf::typeId(cf::Type::String);
}

CFIndex CFStringGetLength(CFStringRef string) {
    return static_cast<CFIndex>(asString(string).length);
}

UniChar CFStringGetCharacterAtIndex(CFStringRef string, CFIndex index) {
    return index < 0 || index >= CFStringGetLength(string)
               ? UniChar{0}
               : asString(string).at(static_cast<std::size_t>(index));
}

void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* characters) {
    clip(CFStringGetLength(string), range);
    for (CFIndex at = 0; at < range.length; ++at) {
        characters[at] = asString(string).at(static_cast<std::size_t>(range.location + at));
    }
}

const char* CFStringGetCStringPtr(CFStringRef string, CFStringEncoding encoding) {
    const bool isOffered = encoding == kCFStringEncodingUTF8 ||
                           encoding == kCFStringEncodingASCII ||
                           encoding == kCFStringEncodingISOLatin1;
    return asString(string).isWide || !isOffered ? nullptr : asString(string).ascii();
}

Boolean CFStringGetCString(CFStringRef reference, char* buffer, CFIndex size,
                           CFStringEncoding encoding) {
    const String& string = asString(reference);
    if (buffer == nullptr || size <= 0) {
        return FALSE;
    }
    const auto room = static_cast<std::size_t>(size) - 1;
    if (const char* const ascii = CFStringGetCStringPtr(reference, encoding); ascii != nullptr) {
        if (string.length > room) {
            return FALSE;
        }
        std::memcpy(buffer, ascii, string.length + 1);
        return TRUE;
    }
    if (!string.isWide) {
        return FALSE;
    }
    const UniChar* const units = string.wide();
    char* end = buffer;
    if (encoding == kCFStringEncodingUTF8) {
        const std::size_t length = cf::utf8Length(units, string.length);
        if (length == cf::kIllFormed || length > room) {
            return FALSE;
        }
        end = cf::utf16ToUtf8(units, string.length, buffer);
    } else if (encoding == kCFStringEncodingISOLatin1) {
        if (string.length > room ||
            std::any_of(units, units + string.length, [](UniChar unit) { return unit > 0xFF; })) {
            return FALSE;
        }
        end = std::transform(units, units + string.length, buffer,
                             [](UniChar unit) { return static_cast<char>(unit); });
    } else {
        return FALSE;
    }
    *end = '\0';
    return TRUE;
}

CFComparisonResult CFStringCompare(CFStringRef one, CFStringRef other,
                                   CFStringCompareFlags /*options*/) {
    const int order = cf::compareStrings(asString(one), asString(other));
    return order == 0 ? kCFCompareEqualTo : order < 0 ? kCFCompareLessThan : kCFCompareGreaterThan;
}
