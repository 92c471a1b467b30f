#include "cli/PropertyListFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <system_error>

namespace qv::host {

namespace {

using qor::kevra::CFHolder;
using State = PropertyListFile::State;

constexpr char kNoDictionary[] = "is no property list with a dictionary as its root";

PropertyListFile failure(State state, std::string problem) {
    return {state, {}, std::move(problem)};
}

PropertyListFile unreadable() {
    return errno == ENOENT
               ? failure(State::Missing, "does not exist")
               : failure(State::Unusable,
                         fmt::format("cannot be read: {}", std::generic_category().message(errno)));
}

class Descriptor {
  public:
    explicit Descriptor(const std::string& path)
        : number_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)) {}
    ~Descriptor() {
        if (number_ != -1) {
            close(number_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return number_; }

  private:
    int number_;
};

// Returns null if the plug-in would not load the document.
CFHolder<CFDictionaryRef> dictionaryIn(const std::string& document) {
    const CFHolder<CFDataRef> data(CFDataCreateWithBytesNoCopy(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(document.data()),
        static_cast<CFIndex>(document.size()), kCFAllocatorNull));
    if (!data) {
        throw std::bad_alloc();
    }
    CFHolder<CFPropertyListRef> root(CFPropertyListCreateFromXMLData(
        kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr));
    if (!root || CFGetTypeID(root.get()) != CFDictionaryGetTypeID() ||
        CFPropertyListIsValid(root.get(), kCFPropertyListBinaryFormat_v1_0) == FALSE) {
        return {};
    }
    return CFHolder<CFDictionaryRef>(static_cast<CFDictionaryRef>(root.release()));
}

}  // namespace

PropertyListFile loadPropertyList(const std::string& path) {
    const Descriptor file(path);
    struct stat status = {};
    if (file.number() == -1 || fstat(file.number(), &status) != 0) {
        return unreadable();
    }
    if (!S_ISREG(status.st_mode)) {
        return failure(State::Unusable, kNoDictionary);
    }
    if (status.st_size == 0 || status.st_size > std::numeric_limits<std::int32_t>::max()) {
        return failure(State::Damaged, kNoDictionary);
    }
    std::string document(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t length = read(file.number(), document.data(), document.size());
    if (length < 0) {
        return unreadable();
    }
    document.resize(static_cast<std::size_t>(length));
    CFHolder<CFDictionaryRef> root = dictionaryIn(document);
    if (!root) {
        return failure(State::Damaged, kNoDictionary);
    }
    return {State::Good, std::move(root), ""};
}

}  // namespace qv::host
