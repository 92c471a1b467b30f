// SPDX-License-Identifier: Apache-2.0

// Reads a property list by the rules by which the plug-in loads its configuration file.
#ifndef QV_CF_DICTIONARY_H
#define QV_CF_DICTIONARY_H

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>

#include "QvCFHolder.h"

namespace qor::kevra {

// Returns the dictionary that is the root of the document. Returns null if the plug-in would not
// load the document, or if memory runs out. `memoryRanOut` may be null; otherwise it tells the two
// apart.
inline CFHolder<CFDictionaryRef> readDictionary(const char* bytes, std::size_t size,
                                                bool* memoryRanOut = nullptr) noexcept {
    const CFHolder<CFDataRef> document(
        CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes),
                                    static_cast<CFIndex>(size), kCFAllocatorNull));
    CFStringRef reason = nullptr;
    CFHolder<CFPropertyListRef> root(
        document ? CFPropertyListCreateFromXMLData(kCFAllocatorDefault, document.get(),
                                                   kCFPropertyListImmutable, &reason)
                 : nullptr);
    const CFHolder<CFStringRef> reasonHolder(reason);
    if (memoryRanOut != nullptr) {
        *memoryRanOut = !root && reason == nullptr;
    }
    // What the binary format allows is allowed in a document of any format.
    if (!root || CFGetTypeID(root.get()) != CFDictionaryGetTypeID() ||
        CFPropertyListIsValid(root.get(), kCFPropertyListBinaryFormat_v1_0) == FALSE) {
        return {};
    }
    return CFHolder<CFDictionaryRef>(static_cast<CFDictionaryRef>(root.release()));
}

}  // namespace qor::kevra

#endif  // QV_CF_DICTIONARY_H
