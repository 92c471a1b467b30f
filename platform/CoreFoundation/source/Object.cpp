#include "Object.h"

#include <CoreFoundation/CFBase.h>

#include <climits>
#include <cstdio>

#include "String.h"
#include "TypeBehavior.h"

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
    cf::Description description;
    description.add(asObject(object));
    if (description.failed()) {
        return nullptr;
    }
    const auto& text = description.text();
    return static_cast<CFStringRef>(
        static_cast<CFTypeRef>(cf::makeStringFromUtf8({text.data(), text.size()})));
}

void CFShow(CFTypeRef object) {
    cf::Description description;
    description.add(asObject(object));
    description.add("\n");
    std::fwrite(description.text().data(), 1, description.text().size(), stderr);
}
