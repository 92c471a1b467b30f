#include "ConfigurationFile.h"

#include <CoreFoundation/CoreFoundation.h>
#include <QvCFHolder.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <new>
#include <stdexcept>
#include <system_error>

#include "NewFile.h"

namespace qv::host {

namespace {

using qor::kevra::CFHolder;

constexpr char kNoSuchFile[] = "does not exist";
constexpr char kNoDictionary[] = "is no property list with a dictionary as its root";

// A symbolic link to nothing is something.
bool exists(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0) {
        return true;
    }
    if (errno != ENOENT && errno != ENOTDIR) {
        throw std::system_error(errno, std::generic_category(), "cannot look for " + path);
    }
    return false;
}

std::string reason(const char* attempt) {
    return fmt::format("cannot be {}: {}", attempt, std::generic_category().message(errno));
}

// Why there is nothing to read; empty when `content` has it. Never waits for a pipe's other end.
std::string readFile(const std::string& path, std::string& content) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor == -1) {
        return errno == ENOENT ? kNoSuchFile : reason("read");
    }
    std::string problem;
    struct stat status = {};
    if (fstat(descriptor, &status) != 0) {
        problem = reason("read");
    } else if (!S_ISREG(status.st_mode) ||
               status.st_size > std::numeric_limits<std::int32_t>::max()) {
        problem = kNoDictionary;
    } else {
        content.resize(static_cast<std::size_t>(status.st_size));
        const ssize_t length = read(descriptor, content.data(), content.size());
        if (length < 0) {
            problem = reason("read");
        } else {
            content.resize(static_cast<std::size_t>(length));
        }
    }
    close(descriptor);
    return problem;
}

// As the plug-in decides it.
bool isDictionary(const std::string& document) {
    const CFHolder<CFDataRef> data(CFDataCreateWithBytesNoCopy(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(document.data()),
        static_cast<CFIndex>(document.size()), kCFAllocatorNull));
    const CFHolder<CFPropertyListRef> root(
        data ? CFPropertyListCreateFromXMLData(kCFAllocatorDefault, data.get(),
                                               kCFPropertyListImmutable, nullptr)
             : nullptr);
    return root && CFGetTypeID(root.get()) == CFDictionaryGetTypeID() &&
           CFPropertyListIsValid(root.get(), kCFPropertyListBinaryFormat_v1_0) != FALSE;
}

std::string loadingProblem(const std::string& path) {
    std::string content;
    std::string problem = readFile(path, content);
    if (problem.empty() && (content.empty() || !isDictionary(content))) {
        problem = kNoDictionary;
    }
    return problem;
}

std::string emptyDictionary() {
    const CFHolder<CFDictionaryRef> root(CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr,
                                                            0, &kCFTypeDictionaryKeyCallBacks,
                                                            &kCFTypeDictionaryValueCallBacks));
    const CFHolder<CFDataRef> document(
        root ? CFPropertyListCreateXMLData(kCFAllocatorDefault, root.get()) : nullptr);
    if (!document) {
        throw std::bad_alloc();
    }
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(document.get())),
            static_cast<std::size_t>(CFDataGetLength(document.get()))};
}

}  // namespace

std::string ConfigurationFile::problem() const {
    if (path_.empty()) {
        return "the configuration file's path is too long";
    }
    std::string problem = loadingProblem(path_);
    if (problem == kNoSuchFile && !exists(path_)) {
        return fmt::format("{} {} (qvhost init makes it)", path_, problem);
    }
    if (problem.empty() && access(path_.c_str(), W_OK) != 0) {
        problem = reason("written");
    }
    return problem.empty() ? problem : path_ + ' ' + problem;
}

void ConfigurationFile::make() const {
    if (path_.empty()) {
        throw std::runtime_error(problem());
    }
    if (exists(path_)) {
        throw std::runtime_error(path_ + " exists already and is left as it is");
    }
    const std::filesystem::path path = path_;
    const std::string backup = (path.parent_path() / "backup" / path.filename()).string();
    if (exists(backup)) {
        const std::string problem = loadingProblem(backup);
        throw std::runtime_error(
            problem.empty()
                ? fmt::format("nothing made: the plug-in will restore {} from its backup {}", path_,
                              backup)
                : fmt::format("nothing made: there is a backup {}, but it {}; move it away first",
                              backup, problem));
    }
    makeNewFile(path_, emptyDictionary());
}

}  // namespace qv::host
