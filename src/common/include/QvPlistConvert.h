// Protobuf messages as property-list values, and back.
//
// A message becomes a dictionary whose keys are its fields' names, a repeated message field an
// array of such dictionaries, an integer a number and a string a string; absent fields stay absent.
// Reading passes over what does not fit: a field whose value is of another kind, and keys that no
// field has.
//
// Which fields of a message are stored is said once, by its StoredFields; with those every function
// here takes the message.
//
// All functions are safe to call from several threads on different objects. A failure is a false
// result, with nothing left of what was created on the way; only std::bad_alloc escapes.
#ifndef QV_PLIST_CONVERT_H
#define QV_PLIST_CONVERT_H

#include <CoreFoundation/CoreFoundation.h>
#include <google/protobuf/repeated_field.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "CFArrayTypeInfo.h"
#include "QvCFHolder.h"
#include "namingService.pb.h"

namespace qor::kevra {

// What kind a stored value must be of: what CFGetTypeID() says of it.

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

// A number that the program has as a T and CoreFoundation as a kNumberType.
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

// One field of a message: the key it is stored under, and functions of the message that say whether
// it is present, give it, and set it.
template <class Has, class Get, class Set>
struct StoredField {
    const char* key;
    Has has;
    Get get;
    Set set;
};
template <class Has, class Get, class Set>
StoredField(const char*, Has, Get, Set) -> StoredField<Has, Get, Set>;

// The fields of a message that are stored, in the order in which they are: a tuple `kFields`.
template <class Message>
struct StoredFields;

template <>
struct StoredFields<ServiceInfo> {
    static constexpr auto kFields = std::make_tuple(
        StoredField{"id", [](const ServiceInfo& service) { return service.has_id(); },
                    [](const ServiceInfo& service) { return service.id(); },
                    [](ServiceInfo& service, int id) { service.set_id(id); }},
        StoredField{
            "address", [](const ServiceInfo& service) { return service.has_address(); },
            [](const ServiceInfo& service) -> const std::string& { return service.address(); },
            [](ServiceInfo& service, std::string address) {
                service.set_address(std::move(address));
            }});
};

inline CFHolder<CFStringRef> createKey(const char* key) {
    return CFHolder<CFStringRef>(
        CFStringCreateWithCString(kCFAllocatorDefault, key, kCFStringEncodingUTF8));
}

inline CFHolder<CFMutableDictionaryRef> createDictionary() {
    return CFHolder<CFMutableDictionaryRef>(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// The values of fields.

inline CFHolder<CFTypeRef> convertCreate(int number) {
    return CFHolder<CFTypeRef>(CFNumberCreate(
        kCFAllocatorDefault, static_cast<CFNumberType>(Int32TypeInfo::CF_NUM_TYPE), &number));
}

// Null where the bytes, up to the first NUL, are not UTF-8.
inline CFHolder<CFTypeRef> convertCreate(const std::string& text) {
    return CFHolder<CFTypeRef>(
        CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
}

// No unit takes more than three bytes, so there is room for the NUL among four a unit.
inline std::size_t utf8Room(CFStringRef string) {
    return static_cast<std::size_t>(CFStringGetLength(string)) * 4 + 1;
}

// Through a buffer with that much room.
inline bool readUtf8(CFStringRef string, char* buffer, std::string& out) {
    const std::size_t size = utf8Room(string) - 1;
    buffer[size] = '\0';
    if (CFStringGetCString(string, buffer, static_cast<CFIndex>(size), kCFStringEncodingUTF8) ==
        FALSE) {
        return false;
    }
    out = buffer;
    return true;
}

// The string as UTF-8, up to its first NUL. False, with `out` as it was, where it cannot be
// expressed, or there is no memory to do it in.
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
        static_cast<char*>(std::malloc(utf8Room(string))), &std::free);
    return buffer != nullptr && readUtf8(string, buffer.get(), out);
}

// The value of a field; false where it is of another kind, or no value of the field's type.

inline bool convert(CFTypeRef value, int& out) {
    return CFGetTypeID(value) == Int32TypeInfo::CF_TYPE_ID &&
           CFNumberGetValue(static_cast<CFNumberRef>(value),
                            static_cast<CFNumberType>(Int32TypeInfo::CF_NUM_TYPE), &out) != FALSE;
}

inline bool convert(CFTypeRef value, std::string& out) {
    if (CFGetTypeID(value) != TypeInfo<std::string>::GET_CF_TYPE_ID()) {
        return false;
    }
    const auto string = static_cast<CFStringRef>(value);
    if (convert(string, out)) {
        return true;
    }
    // Where that was for want of memory, the field is not one without a value: what was read
    // without it would be saved without it. This asks for the memory again, and throws.
    std::string buffer(utf8Room(string), '\0');
    return readUtf8(string, buffer.data(), out);
}

// Replaces the dictionary's contents with the message's fields. Where a field cannot be converted,
// those in front of it stay.
template <class Message>
bool convert(const Message& message, CFMutableDictionaryRef dictionary) {
    if (dictionary == nullptr || !message.IsInitialized()) {
        return false;
    }
    CFDictionaryRemoveAllValues(dictionary);
    const auto add = [&](const auto& field) {
        if (!field.has(message)) {
            return true;
        }
        const CFHolder<CFStringRef> key = createKey(field.key);
        if (!key) {
            return false;
        }
        const CFHolder<CFTypeRef> value = convertCreate(field.get(message));
        if (!value) {
            return false;
        }
        CFDictionaryAddValue(dictionary, key.get(), value.get());
        // Without memory for one more it is not there, and nothing says so.
        return CFDictionaryContainsKey(dictionary, key.get()) != FALSE;
    };
    return std::apply([&](const auto&... fields) { return (add(fields) && ...); },
                      StoredFields<Message>::kFields);
}

// Sets the fields that the dictionary has a fitting value for, and leaves the others as they are.
template <class Message>
bool convert(CFDictionaryRef dictionary, Message& message) {
    if (dictionary == nullptr) {
        return false;
    }
    const auto read = [&](const auto& field) {
        const CFHolder<CFStringRef> key = createKey(field.key);
        if (!key) {
            // Not a field that is absent: what was read without it would be saved without it.
            throw std::bad_alloc();
        }
        const void* const value = CFDictionaryGetValue(dictionary, key.get());
        std::decay_t<decltype(field.get(message))> converted{};
        if (value != nullptr && convert(static_cast<CFTypeRef>(value), converted)) {
            field.set(message, std::move(converted));
        }
    };
    std::apply([&](const auto&... fields) { (read(fields), ...); }, StoredFields<Message>::kFields);
    return message.IsInitialized();
}

// An array of dictionaries, owned by the caller; `out` is left as it was where there is none.
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

// All or nothing: replaces the field's contents, and leaves it empty where one element is no
// dictionary or cannot be converted. Elements of the field are kept for reuse.
template <class Message>
bool convert(CFArrayRef array, google::protobuf::RepeatedPtrField<Message>& field) {
    if (array == nullptr) {
        return false;
    }
    field.Clear();
    const CFIndex count = CFArrayGetCount(array);
    // Add() would lose the new element where there is no memory for its place.
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

// The same for the array under a key. Where there is none, the field is left as it was.
template <class Message>
bool convert(CFDictionaryRef dictionary, const char* key,
             google::protobuf::RepeatedPtrField<Message>& field) {
    if (dictionary == nullptr || key == nullptr) {
        return false;
    }
    const CFHolder<CFStringRef> name = createKey(key);
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
