#include "ConfigurationFile.h"

#include <CoreFoundation/CoreFoundation.h>
#include <QvCFHolder.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>

#include "NewFile.h"
#include "PropertyListFile.h"

namespace qv::host {

namespace {

using qor::kevra::CFHolder;

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

std::string backupOf(const std::string& configurationFile) {
    const std::filesystem::path path = configurationFile;
    return (path.parent_path() / "backup" / path.filename()).string();
}

std::string ConfigurationFile::problem() const {
    if (path_.empty()) {
        return "the configuration file's path is too long";
    }
    const PropertyListFile file = loadPropertyList(path_);
    if (file.state == PropertyListFile::State::Missing && !exists(path_)) {
        return fmt::format("{} {} (qvhost init makes it)", path_, file.problem);
    }
    if (file.state != PropertyListFile::State::Good) {
        return fmt::format("{} {}", path_, file.problem);
    }
    if (access(path_.c_str(), W_OK) != 0) {
        return fmt::format("{} cannot be written: {}", path_,
                           std::generic_category().message(errno));
    }
    return "";
}

void ConfigurationFile::make() const {
    if (path_.empty()) {
        throw std::runtime_error(problem());
    }
    if (exists(path_)) {
        throw std::runtime_error(path_ + " exists already and is left as it is");
    }
    const std::string backup = backupOf(path_);
    if (exists(backup)) {
        const PropertyListFile copy = loadPropertyList(backup);
        throw std::runtime_error(
            copy.state == PropertyListFile::State::Good
                ? fmt::format("nothing made: the plug-in will restore {} from its backup {}", path_,
                              backup)
                : fmt::format("nothing made: there is a backup {}, but it {}; move it away first",
                              backup, copy.problem));
    }
    makeNewFile(path_, emptyDictionary());
}

}  // namespace qv::host
