#include "support/RecordedCalls.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace {

// Null while the thread records nothing.
thread_local std::vector<std::string>* recorded = nullptr;

template <class Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

std::string nameOf(int descriptor) {
    std::error_code error;
    const auto path =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
    return error ? "no file" : path.filename().string();
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

std::string origin(int whence) {
    return whence == SEEK_SET ? "SEEK_SET" : whence == SEEK_CUR ? "SEEK_CUR" : "SEEK_END";
}

}  // namespace

namespace qv::tests {

std::vector<std::string> callsDuring(const std::function<void()>& action) {
    std::vector<std::string> calls;
    struct Recording {
        explicit Recording(std::vector<std::string>& calls) { recorded = &calls; }
        ~Recording() { recorded = nullptr; }
        Recording(const Recording&) = delete;
        Recording& operator=(const Recording&) = delete;
    } const recording(calls);
    action();
    return calls;
}

}  // namespace qv::tests

#define QV_INTERPOSED extern "C" __attribute__((visibility("default")))

QV_INTERPOSED int open(const char* path, int flags, ...) {
    static const auto pass = next<int (*)(const char*, int, ...)>("open");
    unsigned mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, unsigned);
        va_end(arguments);
    }
    if (recorded != nullptr) {
        const std::string name = std::filesystem::path(path).filename().string();
        recorded->push_back("open(" + name + ", " + openFlags(flags) +
                            ((flags & O_CREAT) != 0 ? ", " + octal(mode) : "") + ")");
    }
    return pass(path, flags, mode);
}

QV_INTERPOSED off_t lseek(int descriptor, off_t offset, int whence) noexcept {
    static const auto pass = next<off_t (*)(int, off_t, int)>("lseek");
    if (recorded != nullptr) {
        recorded->push_back("lseek(" + nameOf(descriptor) + ", " + std::to_string(offset) + ", " +
                            origin(whence) + ")");
    }
    return pass(descriptor, offset, whence);
}

QV_INTERPOSED ssize_t write(int descriptor, const void* bytes, std::size_t size) {
    static const auto pass = next<ssize_t (*)(int, const void*, std::size_t)>("write");
    if (recorded != nullptr) {
        recorded->push_back("write(" + nameOf(descriptor) + ", " + std::to_string(size) + ")");
    }
    return pass(descriptor, bytes, size);
}

QV_INTERPOSED int ftruncate(int descriptor, off_t size) noexcept {
    static const auto pass = next<int (*)(int, off_t)>("ftruncate");
    if (recorded != nullptr) {
        recorded->push_back("ftruncate(" + nameOf(descriptor) + ", " + std::to_string(size) + ")");
    }
    return pass(descriptor, size);
}

QV_INTERPOSED int fsync(int descriptor) {
    static const auto pass = next<int (*)(int)>("fsync");
    if (recorded != nullptr) {
        recorded->push_back("fsync(" + nameOf(descriptor) + ")");
    }
    return pass(descriptor);
}

QV_INTERPOSED int close(int descriptor) {
    static const auto pass = next<int (*)(int)>("close");
    if (recorded != nullptr) {
        recorded->push_back("close(" + nameOf(descriptor) + ")");
    }
    return pass(descriptor);
}

QV_INTERPOSED Boolean CFPropertyListIsValid(CFPropertyListRef propertyList,
                                            CFPropertyListFormat format) {
    static const auto pass =
        next<Boolean (*)(CFPropertyListRef, CFPropertyListFormat)>("CFPropertyListIsValid");
    if (recorded != nullptr) {
        const bool isDictionary = CFGetTypeID(propertyList) == CFDictionaryGetTypeID();
        recorded->push_back(std::string("CFPropertyListIsValid(") +
                            (isDictionary ? "dictionary" : "other") + ", " +
                            std::to_string(format) + ")");
    }
    return pass(propertyList, format);
}
