#include "ConfiguredDebugLevel.h"

#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <memory>
#include <new>

#include "QvCFHolder.h"
#include "QvUtil.h"

namespace {

using qor::kevra::CFHolder;

constexpr int defaultLevel = 6;
constexpr int highestLevel = 7;
constexpr off_t largestFile = 16 << 20;

class File {
  public:
    // Never waits, whatever stands at the path.
    explicit File(const char* path) noexcept {
        do {
            descriptor_ = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
        } while (descriptor_ < 0 && errno == EINTR);
    }
    ~File() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // The number of bytes in it; -1 for what is no regular file.
    off_t size() const noexcept {
        struct stat status = {};
        if (descriptor_ < 0 || ::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
            return -1;
        }
        return status.st_size;
    }

    // Whether there were as many bytes to read.
    bool read(UInt8* bytes, off_t count) const noexcept {
        while (count > 0) {
            const ssize_t step = ::read(descriptor_, bytes, static_cast<std::size_t>(count));
            if (step < 0 && errno == EINTR) {
                continue;
            }
            if (step <= 0) {
                return false;
            }
            bytes += step;
            count -= step;
        }
        return true;
    }

  private:
    int descriptor_ = -1;
};

CFHolder<CFDictionaryRef> dictionaryIn(const char* path) noexcept {
    const File file(path);
    const off_t size = file.size();
    if (size <= 0 || size > largestFile) {
        return {};
    }
    const std::unique_ptr<UInt8[]> bytes(new (std::nothrow) UInt8[static_cast<std::size_t>(size)]);
    if (bytes == nullptr || !file.read(bytes.get(), size)) {
        return {};
    }
    const CFHolder<CFDataRef> document(
        CFDataCreateWithBytesNoCopy(nullptr, bytes.get(), size, kCFAllocatorNull));
    if (!document) {
        return {};
    }
    CFHolder<CFPropertyListRef> root(CFPropertyListCreateWithData(
        nullptr, document.get(), kCFPropertyListImmutable, nullptr, nullptr));
    if (!root || CFGetTypeID(root.get()) != CFDictionaryGetTypeID() ||
        CFPropertyListIsValid(root.get(), kCFPropertyListBinaryFormat_v1_0) == FALSE) {
        return {};
    }
    return CFHolder<CFDictionaryRef>(static_cast<CFDictionaryRef>(root.release()));
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
