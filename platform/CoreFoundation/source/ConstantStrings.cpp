// The strings of CFSTR: made on first use, kept for ever.
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

#include <mutex>

#include "String.h"

namespace {

std::mutex g_mutex;

// The strings by their own contents. Protected by g_mutex.
CFMutableDictionaryRef g_strings = nullptr;

}  // namespace

CFStringRef __CFStringMakeConstantString(const char* text) {
    const cf::Ref<const cf::String> string(cf::asString(cf::asObject(
        CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingASCII))));
    if (!string) {
        return nullptr;
    }
    const std::lock_guard<std::mutex> guard(g_mutex);
    if (g_strings == nullptr) {
        g_strings = CFDictionaryCreateMutable(kCFAllocatorDefault, 0,
                                              &kCFTypeDictionaryKeyCallBacks, nullptr);
        if (g_strings == nullptr) {
            return nullptr;
        }
    }
    CFDictionaryAddValue(g_strings, string.get(), string.get());
    const auto* const kept = cf::asObject(CFDictionaryGetValue(g_strings, string.get()));
    if (kept != nullptr) {
        // Who releases what was not created here must not end it for everybody else.
        kept->references.store(cf::Object::kImmortal, std::memory_order_relaxed);
    }
    return static_cast<CFStringRef>(static_cast<CFTypeRef>(kept));
}
