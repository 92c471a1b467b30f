// Creates the strings of CFSTR at their first use and keeps them for ever.
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

#include <cstring>
#include <mutex>

#include "Hash.h"
#include "String.h"
#include "Unicode.h"

namespace {

std::mutex g_mutex;

// The strings by their texts, which are in the memory of the strings. Protected by g_mutex.
CFMutableDictionaryRef g_strings = nullptr;

Boolean equalTexts(const void* one, const void* other) {
    return std::strcmp(static_cast<const char*>(one), static_cast<const char*>(other)) == 0 ? TRUE
                                                                                            : FALSE;
}

CFHashCode hashText(const void* text) {
    return cf::hashBytes(text, std::strlen(static_cast<const char*>(text)));
}

constexpr CFDictionaryKeyCallBacks kTexts = {0, nullptr, nullptr, nullptr, equalTexts, hashText};

CFStringRef find(const char* text) {
    return g_strings == nullptr ? nullptr
                                : static_cast<CFStringRef>(CFDictionaryGetValue(g_strings, text));
}

}  // namespace

CFStringRef __CFStringMakeConstantString(const char* text) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    if (const auto* const kept = find(text); kept != nullptr) {
        return kept;
    }
    if (g_strings == nullptr) {
        g_strings = CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kTexts, nullptr);
    }
    const std::string_view ascii(text);
    if (g_strings == nullptr || cf::asciiPrefix(ascii.data(), ascii.size()) != ascii.size()) {
        return nullptr;
    }
    cf::String* const string = cf::makeAsciiString(ascii);
    if (string == nullptr) {
        return nullptr;
    }
    CFDictionaryAddValue(g_strings, string->ascii(), string);
    if (find(text) == nullptr) {
        cf::release(string);
        return nullptr;
    }
    // A caller that releases the string by mistake must not destroy it for other callers.
    string->references.store(cf::Object::kImmortal, std::memory_order_relaxed);
    return reinterpret_cast<CFStringRef>(string);
}
