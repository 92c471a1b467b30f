// SPDX-License-Identifier: Apache-2.0

#include "support/RecordedCalls.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <type_traits>
#include <utility>

namespace {

using qv::tests::GivenResult;

struct Recording {
    std::vector<std::string> calls;
    GivenResult given;
};

// Null while the thread records nothing.
thread_local Recording* recording = nullptr;

// Passes a call on, or gives the test's result instead. Records the call if the thread records.
template <class Arguments, class Pass>
auto called(const char* function, Arguments arguments, Pass pass) -> decltype(pass()) {
    if (recording == nullptr) {
        return pass();
    }
    recording->calls.push_back(std::string(function) + "(" + arguments() + ")");
    if (recording->given.call != recording->calls.back()) {
        return pass();
    }
    const GivenResult given = std::exchange(recording->given, {});
    errno = given.error;
    if constexpr (std::is_pointer_v<decltype(pass())>) {
        return nullptr;
    } else {
        return static_cast<decltype(pass())>(given.result);
    }
}

// Returns the function that the one of this file stands in front of.
template <class Function>
Function* nextFunction(Function* /*own*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string nameOf(const std::filesystem::path& path) {
    const bool isBackup = path.parent_path().filename() == "backup";
    return (isBackup ? "backup/" : "") + path.filename().string();
}

std::string nameOf(const char* path) {
    return nameOf(std::filesystem::path(path));
}

std::string nameOf(int descriptor) {
    std::error_code error;
    const auto path =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
    return error ? "no file" : nameOf(path);
}

std::string nameOf(std::FILE* stream) {
    return nameOf(fileno(stream));
}

std::string octal(unsigned mode) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", mode);
    return text;
}

std::string openFlags(int flags) {
    struct Flag {
        int bit;
        const char* name;
    };
    const int access = flags & O_ACCMODE;
    std::string text = access == O_RDONLY ? "O_RDONLY" : access == O_WRONLY ? "O_WRONLY" : "O_RDWR";
    int rest = flags & ~O_ACCMODE;
    for (const Flag& flag : {Flag{O_CREAT, "O_CREAT"}, Flag{O_TRUNC, "O_TRUNC"}}) {
        if ((rest & flag.bit) != 0) {
            text += std::string(" | ") + flag.name;
            rest &= ~flag.bit;
        }
    }
    return rest == 0 ? text : text + " | " + std::to_string(rest);
}

std::string encodingName(CFStringEncoding encoding) {
    return encoding == kCFStringEncodingUTF8 ? "UTF-8" : std::to_string(encoding);
}

std::string origin(int whence) {
    return whence == SEEK_SET ? "SEEK_SET" : whence == SEEK_CUR ? "SEEK_CUR" : "SEEK_END";
}

}  // namespace

namespace qv::tests {

std::vector<std::string> callsDuring(const std::function<void()>& action,
                                     const GivenResult& given) {
    Recording own{{}, given};
    struct Guard {
        explicit Guard(Recording& own) { recording = &own; }
        ~Guard() { recording = nullptr; }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;
    } const guard(own);
    action();
    return own.calls;
}

}  // namespace qv::tests

#define QV_INTERPOSED extern "C" __attribute__((visibility("default")))

QV_INTERPOSED int open(const char* path, int flags, ...) {
    static auto* const next = nextFunction(&open, "open");
    unsigned mode = 0;
    const bool hasMode = (flags & O_CREAT) != 0;
    if (hasMode) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, unsigned);
        va_end(arguments);
    }
    return called(
        "open",
        [=] {
            return nameOf(path) + ", " + openFlags(flags) + (hasMode ? ", " + octal(mode) : "");
        },
        [=] { return next(path, flags, mode); });
}

QV_INTERPOSED off_t lseek(int descriptor, off_t offset, int whence) noexcept {
    static auto* const next = nextFunction(&lseek, "lseek");
    return called(
        "lseek",
        [=] { return nameOf(descriptor) + ", " + std::to_string(offset) + ", " + origin(whence); },
        [=] { return next(descriptor, offset, whence); });
}

#ifdef __GLIBC__
// The standard library's file streams call the function by this name.
QV_INTERPOSED off64_t lseek64(int descriptor, off64_t offset, int whence) noexcept {
    return lseek(descriptor, offset, whence);
}
#endif

QV_INTERPOSED ssize_t write(int descriptor, const void* bytes, std::size_t size) {
    static auto* const next = nextFunction(&write, "write");
    return called(
        "write", [=] { return nameOf(descriptor) + ", " + std::to_string(size); },
        [=] { return next(descriptor, bytes, size); });
}

QV_INTERPOSED int ftruncate(int descriptor, off_t size) noexcept {
    static auto* const next = nextFunction(&ftruncate, "ftruncate");
    return called(
        "ftruncate", [=] { return nameOf(descriptor) + ", " + std::to_string(size); },
        [=] { return next(descriptor, size); });
}

QV_INTERPOSED int fsync(int descriptor) {
    static auto* const next = nextFunction(&fsync, "fsync");
    return called(
        "fsync", [=] { return nameOf(descriptor); }, [=] { return next(descriptor); });
}

QV_INTERPOSED int close(int descriptor) {
    static auto* const next = nextFunction(&close, "close");
    return called(
        "close", [=] { return nameOf(descriptor); }, [=] { return next(descriptor); });
}

QV_INTERPOSED int mkdir(const char* path, mode_t mode) noexcept {
    static auto* const next = nextFunction(&mkdir, "mkdir");
    return called(
        "mkdir", [=] { return nameOf(path) + ", " + octal(mode); },
        [=] { return next(path, mode); });
}

QV_INTERPOSED std::FILE* fopen(const char* path, const char* mode) {
    static auto* const next = nextFunction(&fopen, "fopen");
    return called(
        "fopen", [=] { return nameOf(path) + ", " + mode; }, [=] { return next(path, mode); });
}

QV_INTERPOSED long ftell(std::FILE* stream) {
    static auto* const next = nextFunction(&ftell, "ftell");
    return called(
        "ftell", [=] { return nameOf(stream); }, [=] { return next(stream); });
}

QV_INTERPOSED void rewind(std::FILE* stream) {
    static auto* const next = nextFunction(&rewind, "rewind");
    called(
        "rewind", [=] { return nameOf(stream); },
        [=] {
            next(stream);
            return 0;
        });
}

QV_INTERPOSED std::size_t fread(void* bytes, std::size_t size, std::size_t count,
                                std::FILE* stream) {
    static auto* const next = nextFunction(&fread, "fread");
    return called(
        "fread", [=] { return nameOf(stream) + ", " + std::to_string(size * count); },
        [=] { return next(bytes, size, count, stream); });
}

QV_INTERPOSED std::size_t fwrite(const void* bytes, std::size_t size, std::size_t count,
                                 std::FILE* stream) {
    static auto* const next = nextFunction(&fwrite, "fwrite");
    return called(
        "fwrite", [=] { return nameOf(stream) + ", " + std::to_string(size * count); },
        [=] { return next(bytes, size, count, stream); });
}

QV_INTERPOSED int fflush(std::FILE* stream) {
    static auto* const next = nextFunction(&fflush, "fflush");
    return called(
        "fflush", [=] { return nameOf(stream); }, [=] { return next(stream); });
}

QV_INTERPOSED CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef allocator,
                                                                CFDataRef data,
                                                                CFOptionFlags options,
                                                                CFStringRef* error) {
    static auto* const next =
        nextFunction(&CFPropertyListCreateFromXMLData, "CFPropertyListCreateFromXMLData");
    return called(
        "CFPropertyListCreateFromXMLData", [=] { return std::to_string(options); },
        [=] { return next(allocator, data, options, error); });
}

QV_INTERPOSED Boolean CFPropertyListIsValid(CFPropertyListRef propertyList,
                                            CFPropertyListFormat format) {
    static auto* const next = nextFunction(&CFPropertyListIsValid, "CFPropertyListIsValid");
    return called(
        "CFPropertyListIsValid",
        [=] {
            const bool isDictionary = CFGetTypeID(propertyList) == CFDictionaryGetTypeID();
            return (isDictionary ? "dictionary, " : "other, ") + std::to_string(format);
        },
        [=] { return next(propertyList, format); });
}

QV_INTERPOSED CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, const UInt8* bytes,
                                                    CFIndex length, CFAllocatorRef deallocator) {
    static auto* const next =
        nextFunction(&CFDataCreateWithBytesNoCopy, "CFDataCreateWithBytesNoCopy");
    return called(
        "CFDataCreateWithBytesNoCopy", [=] { return std::to_string(length); },
        [=] { return next(allocator, bytes, length, deallocator); });
}

QV_INTERPOSED CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text,
                                                    CFStringEncoding encoding) {
    static auto* const next = nextFunction(&CFStringCreateWithCString, "CFStringCreateWithCString");
    return called(
        "CFStringCreateWithCString",
        [=] {
            return std::string(text != nullptr ? text : "null") + ", " + encodingName(encoding);
        },
        [=] { return next(allocator, text, encoding); });
}

QV_INTERPOSED const char* CFStringGetCStringPtr(CFStringRef string, CFStringEncoding encoding) {
    static auto* const next = nextFunction(&CFStringGetCStringPtr, "CFStringGetCStringPtr");
    return called(
        "CFStringGetCStringPtr", [=] { return encodingName(encoding); },
        [=] { return next(string, encoding); });
}

QV_INTERPOSED Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size,
                                         CFStringEncoding encoding) {
    static auto* const next = nextFunction(&CFStringGetCString, "CFStringGetCString");
    return called(
        "CFStringGetCString", [=] { return std::to_string(size) + ", " + encodingName(encoding); },
        [=] { return next(string, buffer, size, encoding); });
}

QV_INTERPOSED CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type,
                                         const void* value) {
    static auto* const next = nextFunction(&CFNumberCreate, "CFNumberCreate");
    return called(
        "CFNumberCreate", [=] { return std::to_string(type); },
        [=] { return next(allocator, type, value); });
}

QV_INTERPOSED CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* keys,
    const CFDictionaryValueCallBacks* values) {
    static auto* const next = nextFunction(&CFDictionaryCreateMutable, "CFDictionaryCreateMutable");
    return called(
        "CFDictionaryCreateMutable", [] { return std::string(); },
        [=] { return next(allocator, capacity, keys, values); });
}

QV_INTERPOSED CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                                       const CFArrayCallBacks* callBacks) {
    static auto* const next = nextFunction(&CFArrayCreate, "CFArrayCreate");
    return called(
        "CFArrayCreate", [=] { return std::to_string(count); },
        [=] { return next(allocator, values, count, callBacks); });
}

QV_INTERPOSED CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator,
                                                    CFPropertyListRef propertyList) {
    static auto* const next =
        nextFunction(&CFPropertyListCreateXMLData, "CFPropertyListCreateXMLData");
    return called(
        "CFPropertyListCreateXMLData", [] { return std::string(); },
        [=] { return next(allocator, propertyList); });
}
