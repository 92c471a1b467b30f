// SPDX-License-Identifier: Apache-2.0

#include "ConfiguredDebugLevel.h"

#include <CoreFoundation/CoreFoundation.h>
#include <QvSystem/Files.h>

#include <climits>
#include <cstddef>
#include <new>
#include <string>

#include "QvCFDictionary.h"
#include "QvUtil.h"

namespace {

using qor::kevra::CFHolder;

constexpr int defaultLevel = 6;
constexpr int highestLevel = 7;
constexpr std::size_t largestFile = 16 << 20;

CFHolder<CFDictionaryRef> dictionaryIn(const char* path) noexcept {
    try {
        std::string document;
        if (qv::system::readRegularFile(path, largestFile, document) || document.empty()) {
            return {};
        }
        return qor::kevra::readDictionary(document.data(), document.size());
    } catch (const std::bad_alloc&) {
        return {};
    }
}

int levelIn(CFDictionaryRef configuration) noexcept {
    const CFHolder<CFStringRef> key(
        CFStringCreateWithCString(nullptr, "DebugLevel", kCFStringEncodingUTF8));
    if (!key) {
        return defaultLevel;
    }
    const void* const value = CFDictionaryGetValue(configuration, key.get());
    if (value == nullptr || CFGetTypeID(value) != CFNumberGetTypeID()) {
        return defaultLevel;
    }
    SInt32 level = 0;
    const bool isThatNumber =
        CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt32Type, &level) != FALSE;
    return isThatNumber && level >= 0 && level <= highestLevel ? level : defaultLevel;
}

}  // namespace

int qv::util::configuredDebugLevel(const char* configName) noexcept {
    char path[PATH_MAX];
    if (QvGetFilePath(path, sizeof path, configName) == nullptr) {
        return defaultLevel;
    }
    const CFHolder<CFDictionaryRef> configuration = dictionaryIn(path);
    return configuration ? levelIn(configuration.get()) : defaultLevel;
}
