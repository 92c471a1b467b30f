// SPDX-License-Identifier: Apache-2.0

// Conversion between protobuf messages and property-list values.
//
// A service is stored as a dictionary with the keys "id", a number, and "address", a string. A
// field that is absent in the message has no key. A repeated field is stored as an array of such
// dictionaries. Reading ignores other keys, and values of another kind than the field has.
//
// A function that fails returns false and releases what it created. Only std::bad_alloc is thrown.
// Every function may run on several threads at once, on different objects.
#ifndef QV_PLIST_CONVERT_H
#define QV_PLIST_CONVERT_H

#include <CoreFoundation/CoreFoundation.h>
#include <google/protobuf/repeated_field.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "CFArrayTypeInfo.h"
#include "QvCFHolder.h"
#include "namingService.pb.h"

namespace qor::kevra {

// The type traits say which type id the stored form of a program type has.

// A message is stored as a dictionary.
template <class T>
class TypeInfo {
  public:
    static const CFTypeID CF_TYPE_ID;
};
template <class T>
const CFTypeID TypeInfo<T>::CF_TYPE_ID = CFDictionaryGetTypeID();

template <>
class TypeInfo<std::string> {
  public:
    static CFTypeID GET_CF_TYPE_ID() {
        static const CFTypeID typeId = CFStringGetTypeID();
        return typeId;
    }
};

// A number that is a T in the program and a kNumberType in CoreFoundation.
template <class T, long kNumberType>
class CFNumberTypeInfo {
  public:
    static const CFTypeID CF_TYPE_ID;
    static constexpr long CF_NUM_TYPE = kNumberType;
};
template <class T, long kNumberType>
const CFTypeID CFNumberTypeInfo<T, kNumberType>::CF_TYPE_ID = CFNumberGetTypeID();

using Int32TypeInfo = CFNumberTypeInfo<int, 3>;
static_assert(Int32TypeInfo::CF_NUM_TYPE == kCFNumberSInt32Type);

// Creates a string from UTF-8 up to its first NUL (compatibility C24). Returns null if the bytes
// are not UTF-8 or memory runs out.
inline CFHolder<CFStringRef> createString(const char* text) {
    return CFHolder<CFStringRef>(
        CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
}

// Creates an empty dictionary. Returns null if memory runs out.
inline CFHolder<CFMutableDictionaryRef> createDictionary() {
    return CFHolder<CFMutableDictionaryRef>(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// Adds a value under a new key. Returns false if the value is null or memory runs out.
inline bool addValue(CFMutableDictionaryRef dictionary, CFStringRef key, CFTypeRef value) {
    if (value == nullptr) {
        return false;
    }
    CFDictionaryAddValue(dictionary, key, value);
    // CFDictionaryAddValue() does not report that memory ran out.
    return CFDictionaryContainsKey(dictionary, key) != FALSE;
}

// Replaces the dictionary's contents with the fields of the service that are present. If the
// address cannot be converted, the identifier stays in the dictionary.
inline bool convert(const ServiceInfo& service, CFMutableDictionaryRef dictionary) {
    if (dictionary == nullptr || !service.IsInitialized()) {
        return false;
    }
    CFDictionaryRemoveAllValues(dictionary);
    if (service.has_id()) {
        const CFHolder<CFStringRef> key = createString("id");
        if (!key) {
            return false;
        }
        const int id = service.id();
        const CFHolder<CFNumberRef> number(CFNumberCreate(
            kCFAllocatorDefault, static_cast<CFNumberType>(Int32TypeInfo::CF_NUM_TYPE), &id));
        if (!addValue(dictionary, key.get(), number.get())) {
            return false;
        }
    }
    if (!service.has_address()) {
        return true;
    }
    const CFHolder<CFStringRef> key = createString("address");
    return key && addValue(dictionary, key.get(), createString(service.address().c_str()).get());
}

// Returns how many bytes the string takes in UTF-8 at most, with a NUL. A UTF-16 unit takes three
// bytes at most, so four a unit leave room for the NUL.
inline std::size_t utf8Size(CFStringRef string) {
    return static_cast<std::size_t>(CFStringGetLength(string)) * 4 + 1;
}

// Reads the string up to its first NUL through a buffer of utf8Size() bytes. Returns false and
// leaves `out` as it is if the string has no UTF-8 form.
inline bool readUtf8(CFStringRef string, char* buffer, std::string& out) {
    const std::size_t size = utf8Size(string) - 1;
    buffer[size] = '\0';
    if (CFStringGetCString(string, buffer, static_cast<CFIndex>(size), kCFStringEncodingUTF8) ==
        FALSE) {
        return false;
    }
    out = buffer;
    return true;
}

// Converts the string to UTF-8 up to its first NUL. Returns false and leaves `out` as it is if the
// string is null or has no UTF-8 form, or if memory for the buffer runs out.
inline bool convert(CFStringRef string, std::string& out) {
    if (string == nullptr) {
        return false;
    }
    if (const char* const text = CFStringGetCStringPtr(string, kCFStringEncodingUTF8)) {
        out = text;
        return true;
    }
    if (CFStringGetLength(string) == 0) {
        out.clear();
        return true;
    }
    const std::unique_ptr<char, decltype(&std::free)> buffer(
        static_cast<char*>(std::malloc(utf8Size(string))), &std::free);
    return buffer != nullptr && readUtf8(string, buffer.get(), out);
}

// Returns the value under the key, or null. Throws if memory for the key runs out. Treating the
// field as absent would drop it at the next save.
inline CFTypeRef valueOf(CFDictionaryRef dictionary, const char* key) {
    const CFHolder<CFStringRef> name = createString(key);
    if (!name) {
        throw std::bad_alloc();
    }
    return CFDictionaryGetValue(dictionary, name.get());
}

// Sets the fields for which the dictionary has a fitting value. The other fields stay as they are
// (compatibility C23).
inline bool convert(CFDictionaryRef dictionary, ServiceInfo& service) {
    if (dictionary == nullptr) {
        return false;
    }
    CFTypeRef const id = valueOf(dictionary, "id");
    int number = 0;
    if (id != nullptr && CFGetTypeID(id) == Int32TypeInfo::CF_TYPE_ID &&
        CFNumberGetValue(static_cast<CFNumberRef>(id),
                         static_cast<CFNumberType>(Int32TypeInfo::CF_NUM_TYPE), &number) != FALSE) {
        service.set_id(number);
    }
    CFTypeRef const address = valueOf(dictionary, "address");
    if (address != nullptr && CFGetTypeID(address) == TypeInfo<std::string>::GET_CF_TYPE_ID()) {
        const auto string = static_cast<CFStringRef>(address);
        std::string text;
        bool isRead = convert(string, text);
        if (!isRead) {
            // The string has no UTF-8 form, or memory ran out. Asking for the memory once more
            // throws in the second case. Treating the address as absent would drop it at the next
            // save.
            std::string buffer(utf8Size(string), '\0');
            isRead = readUtf8(string, buffer.data(), text);
        }
        if (isRead) {
            service.set_address(std::move(text));
        }
    }
    return service.IsInitialized();
}

// Creates an array with a dictionary for each message, in order. The caller owns the array. On
// failure `out` stays as it is.
template <class Message>
bool convertCreate(const google::protobuf::RepeatedPtrField<Message>& field, CFArrayRef& out) {
    std::vector<CFHolder<CFMutableDictionaryRef>> owners;
    std::vector<const void*> values;
    owners.reserve(static_cast<std::size_t>(field.size()));
    values.reserve(static_cast<std::size_t>(field.size()));
    for (const Message& message : field) {
        CFHolder<CFMutableDictionaryRef> dictionary = createDictionary();
        if (!dictionary || !convert(message, dictionary.get())) {
            return false;
        }
        values.push_back(dictionary.get());
        owners.push_back(std::move(dictionary));
    }
    CFArrayRef const array =
        CFArrayCreate(kCFAllocatorDefault, values.empty() ? nullptr : values.data(),
                      static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks);
    if (array == nullptr) {
        return false;
    }
    out = array;
    return true;
}

// Replaces the field's contents with a message for each dictionary of the array. If an element is
// not a dictionary or cannot be converted, the field becomes empty. The field keeps its former
// elements for reuse.
template <class Message>
bool convert(CFArrayRef array, google::protobuf::RepeatedPtrField<Message>& field) {
    if (array == nullptr) {
        return false;
    }
    field.Clear();
    const CFIndex count = CFArrayGetCount(array);
    // Without room for its place in the list, Add() would leak the new element.
    field.Reserve(static_cast<int>(count));
    for (CFIndex index = 0; index < count; ++index) {
        Message* const message = field.Add();
        const void* const value = CFArrayGetValueAtIndex(array, index);
        if (value == nullptr || CFGetTypeID(value) != TypeInfo<Message>::CF_TYPE_ID ||
            !convert(static_cast<CFDictionaryRef>(value), *message)) {
            field.Clear();
            return false;
        }
    }
    return true;
}

// Does the same with the array under a key of the dictionary. If the key is missing or its value is
// not an array, the field stays as it is.
template <class Message>
bool convert(CFDictionaryRef dictionary, const char* key,
             google::protobuf::RepeatedPtrField<Message>& field) {
    if (dictionary == nullptr || key == nullptr) {
        return false;
    }
    const CFHolder<CFStringRef> name = createString(key);
    if (!name) {
        return false;
    }
    const void* const value = CFDictionaryGetValue(dictionary, name.get());
    if (value == nullptr || CFGetTypeID(value) != CFArrayTypeInfo::CF_TYPE_ID) {
        return false;
    }
    return convert(static_cast<CFArrayRef>(value), field);
}

}  // namespace qor::kevra

#endif  // QV_PLIST_CONVERT_H
