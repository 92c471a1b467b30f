// SPDX-License-Identifier: Apache-2.0

// Creates the strings of CFSTR at their first use and keeps them for ever.
#include <CoreFoundation/CFString.h>

#include <cstdlib>
#include <mutex>

#include "String.h"
#include "Unicode.h"

namespace {

std::mutex g_mutex;

// A program has few constant strings, so a list is fast enough.
struct Constant {
    const cf::String* string;
    const Constant* next;
};

// Protected by g_mutex.
const Constant* g_constants = nullptr;

}  // namespace

CFStringRef __CFStringMakeConstantString(const char* text) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    for (const Constant* at = g_constants; at != nullptr; at = at->next) {
        if (cf::isAscii(*at->string, text)) {
            return reinterpret_cast<CFStringRef>(at->string);
        }
    }
    const std::string_view ascii(text);
    if (cf::asciiPrefix(ascii.data(), ascii.size()) != ascii.size()) {
        return nullptr;
    }
    cf::Ref<cf::String> string(cf::makeAsciiString(ascii));
    auto* const constant = static_cast<Constant*>(std::malloc(sizeof(Constant)));
    if (!string || constant == nullptr) {
        std::free(constant);
        return nullptr;
    }
    // A caller that releases the string by mistake must not destroy it for other callers.
    string->references.store(cf::Object::kImmortal, std::memory_order_relaxed);
    g_constants = new (constant) Constant{string.pass(), g_constants};
    return reinterpret_cast<CFStringRef>(constant->string);
}
