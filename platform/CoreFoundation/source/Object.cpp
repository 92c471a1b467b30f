// SPDX-License-Identifier: Apache-2.0

#include "Object.h"

#include <CoreFoundation/CFBase.h>

#include <climits>
#include <cstdio>
#include <string_view>

#include "String.h"
#include "TypeBehavior.h"
#include "Validity.h"
#include "XmlWriter.h"

namespace cf {

void destroy(const Object* object) {
    Ending().run(object);
}

bool equal(const Object* one, const Object* other) {
    return Comparison().run(one, other);
}

CFHashCode hash(const Object* object) {
    const auto hashOf = behaviorOf(object).hash;
    return hashOf == nullptr ? reinterpret_cast<std::uintptr_t>(object) : hashOf(object);
}

// Writes the description of an object: its XML document if it is a property list, otherwise its
// type and its address. Returns false if memory runs out.
static bool describe(const Object* object, Buffer<char>& text) {
    if (object == nullptr) {
        constexpr std::string_view kNull = "(null)\n";
        return text.append(kNull.data(), kNull.size());
    }
    if (isValid(object, kCFPropertyListXMLFormat_v1_0)) {
        return writeXml(object, text);
    }
    char line[64] = {};
    const int size = std::snprintf(line, sizeof line, "<object of type %lu at %p>\n",
                                   typeId(typeOf(object)), static_cast<const void*>(object));
    return size > 0 && text.append(line, static_cast<std::size_t>(size));
}

}  // namespace cf

using cf::asObject;

CFTypeID CFGetTypeID(CFTypeRef object) {
    return cf::typeId(cf::typeOf(asObject(object)));
}

CFTypeRef CFRetain(CFTypeRef object) {
    cf::retain(asObject(object));
    return object;
}

void CFRelease(CFTypeRef object) {
    cf::release(asObject(object));
}

CFIndex CFGetRetainCount(CFTypeRef object) {
    if (cf::standsInReference(asObject(object))) {
        return 1;
    }
    const std::uint32_t count = cf::countOf(asObject(object));
    return (count & cf::Object::kImmortal) != 0 ? LONG_MAX : static_cast<CFIndex>(count);
}

Boolean CFEqual(CFTypeRef one, CFTypeRef other) {
    return cf::equal(asObject(one), asObject(other)) ? TRUE : FALSE;
}

CFHashCode CFHash(CFTypeRef object) {
    return cf::hash(asObject(object));
}

CFStringRef CFCopyDescription(CFTypeRef object) {
    cf::Buffer<char> text;
    return cf::describe(asObject(object), text)
               ? static_cast<CFStringRef>(
                     static_cast<CFTypeRef>(cf::makeStringFromUtf8({text.data(), text.size()})))
               : nullptr;
}

void CFShow(CFTypeRef object) {
    cf::Buffer<char> text;
    if (cf::describe(asObject(object), text)) {
        std::fwrite(text.data(), 1, text.size(), stderr);
    }
}
