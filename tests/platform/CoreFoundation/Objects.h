// SPDX-License-Identifier: Apache-2.0

// Provides owned objects, and short functions that create and read them.
#ifndef QV_TESTS_OBJECTS_H
#define QV_TESTS_OBJECTS_H

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QvCFHolder.h"

namespace qv::tests {

template <class T = CFTypeRef>
using Owned = qor::kevra::CFHolder<T>;

// Takes over the reference that a function with Create or Copy in its name returned.
template <class T>
Owned<T> own(T object) {
    return Owned<T>(object);
}

inline Owned<CFStringRef> makeString(std::string_view utf8) {
    return own(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8.data()),
                                static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, FALSE));
}

inline Owned<CFStringRef> makeString(std::u16string_view units) {
    return own(CFStringCreateWithCharacters(kCFAllocatorDefault,
                                            reinterpret_cast<const UniChar*>(units.data()),
                                            static_cast<CFIndex>(units.size())));
}

inline Owned<CFNumberRef> makeInteger(std::int64_t value) {
    return own(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}

inline Owned<CFNumberRef> makeReal(double value) {
    return own(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value));
}

inline Owned<CFDataRef> makeData(std::string_view bytes) {
    return own(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                            static_cast<CFIndex>(bytes.size())));
}

inline Owned<CFDateRef> makeDate(double time) {
    return own(CFDateCreate(kCFAllocatorDefault, time));
}

// The functions below create an empty, mutable container of objects.
inline Owned<CFMutableArrayRef> makeArray() {
    return own(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
}

inline Owned<CFMutableDictionaryRef> makeDictionary() {
    return own(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                         &kCFTypeDictionaryValueCallBacks));
}

inline bool equal(CFTypeRef one, CFTypeRef other) {
    return CFEqual(one, other) != FALSE;
}

inline std::u16string unitsOf(CFStringRef string) {
    std::u16string units(static_cast<std::size_t>(CFStringGetLength(string)), u'\0');
    CFStringGetCharacters(string, CFRangeMake(0, CFStringGetLength(string)),
                          reinterpret_cast<UniChar*>(units.data()));
    return units;
}

// Returns the UTF-8 of the string, or nothing if the string has a lone surrogate. A code unit takes
// at most three bytes.
inline std::optional<std::string> utf8Of(CFStringRef string) {
    std::string buffer(3 * static_cast<std::size_t>(CFStringGetLength(string)) + 1, '\xaa');
    if (CFStringGetCString(string, buffer.data(), static_cast<CFIndex>(buffer.size()),
                           kCFStringEncodingUTF8) == FALSE) {
        return std::nullopt;
    }
    // The string may hold a NUL, so the last NUL is the terminator.
    buffer.resize(buffer.find_last_not_of('\xaa'));
    return buffer;
}

inline std::string bytesOf(CFDataRef data) {
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
            static_cast<std::size_t>(CFDataGetLength(data))};
}

inline bool isValid(CFTypeRef object, CFPropertyListFormat format) {
    return CFPropertyListIsValid(object, format) != FALSE;
}

// Returns the tree of a document of any kind, or null if the document is refused.
inline Owned<> readDocument(std::string_view bytes,
                            CFOptionFlags mutability = kCFPropertyListMutableContainers) {
    return own(CFPropertyListCreateFromXMLData(kCFAllocatorDefault, makeData(bytes).get(),
                                               mutability, nullptr));
}

// Returns the XML document of the tree, or nothing if the tree is not written.
inline std::optional<std::string> writeDocument(CFTypeRef tree) {
    const auto data = own(CFPropertyListCreateXMLData(kCFAllocatorDefault, tree));
    return data ? std::optional(bytesOf(data.get())) : std::nullopt;
}

}  // namespace qv::tests

#endif  // QV_TESTS_OBJECTS_H
