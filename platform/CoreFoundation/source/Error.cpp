// SPDX-License-Identifier: Apache-2.0

#include "Error.h"

#include "TypeBehavior.h"

namespace cf {

namespace {

struct Error : Object {
    Error(CFIndex itsCode, String* text) : Object(Type::Error), code(itsCode), description(text) {}

    CFIndex code;
    const String* description;
};

void endError(Object& object, Ending& ending) {
    ending.release(static_cast<Error&>(object).description);
    dispose(&static_cast<Error&>(object));
}

}  // namespace

const TypeBehavior kErrorBehavior = {endError, nullptr, nullptr};

CFErrorRef makeError(CFIndex code, Ref<String> description) {
    if (!description) {
        return nullptr;
    }
    auto* const error = create<Error>(kCFAllocatorDefault, 0, code, description.get());
    if (error != nullptr) {
        description.pass();
    }
    return reinterpret_cast<CFErrorRef>(error);
}

}  // namespace cf

CFTypeID CFErrorGetTypeID() {
    return cf::typeId(cf::Type::Error);
}

CFIndex CFErrorGetCode(CFErrorRef error) {
    return reinterpret_cast<cf::Error*>(error)->code;
}

CFStringRef CFErrorCopyDescription(CFErrorRef error) {
    return static_cast<CFStringRef>(CFRetain(reinterpret_cast<cf::Error*>(error)->description));
}
