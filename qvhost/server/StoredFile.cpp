// SPDX-License-Identifier: Apache-2.0

#include "server/StoredFile.h"

#include <QvSystem/Directories.h>
#include <QvSystem/Files.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "server/NewFile.h"
#include "server/PropertyListFile.h"
#include "server/ServiceDocument.h"

namespace qv::host {

namespace {

namespace fs = std::filesystem;
using State = FileView::State;

constexpr std::size_t kCopiesAside = 5;
constexpr char kAside[] = ".aside-";

// Tells whether anything stands at the path, a symbolic link to nothing included.
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

// Returns the whole file, which is a regular one. Throws std::system_error.
std::string contentOf(const std::string& path) {
    std::string content;
    const std::error_code error =
        system::readRegularFile(path, std::numeric_limits<std::ptrdiff_t>::max() / 2, content);
    if (error) {
        throw std::system_error(error, "cannot read " + path);
    }
    return content;
}

// Returns the numbers of the copies aside of a file, in ascending order.
std::vector<uint64_t> copiesAside(const std::string& path) {
    const std::string prefix = fs::path(path).filename().string() + kAside;
    std::vector<uint64_t> numbers;
    for (const fs::directory_entry& entry : fs::directory_iterator(system::directoryOf(path))) {
        const std::string name = entry.path().filename().string();
        if (name.compare(0, prefix.size(), prefix) != 0) {
            continue;
        }
        const char* const end = name.data() + name.size();
        uint64_t number = 0;
        const auto [stop, error] = std::from_chars(name.data() + prefix.size(), end, number);
        if (error == std::errc() && stop == end) {
            numbers.push_back(number);
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

}  // namespace

// FNV-1a: a change of one byte always changes the number.
uint64_t fingerprintOf(std::string_view bytes) {
    constexpr uint64_t kPrime = 0x100000001b3;
    uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * kPrime;
    }
    // 0 stands for no file.
    return std::max(hash, uint64_t{1});
}

Truth truthOf(const FileView& file, const FileNote& note, int64_t revision) {
    const bool isEdited = file.state == State::Whole && file.isDirectory &&
                          file.fingerprint != note.fingerprint && !note.isBeingWritten &&
                          note.revision >= revision;
    return isEdited ? Truth::File : Truth::Record;
}

std::string StoredFile::backup() const {
    const fs::path path = path_;
    return (path.parent_path() / "backup" / path.filename()).string();
}

std::string StoredFile::problem(const FileView& view) const {
    return path_.empty() ? "the configuration file's path is too long"
                         : fmt::format("{} {}", path_, view.problem);
}

std::string StoredFile::writeProblem() const {
    if (path_.empty()) {
        return problem({});
    }
    return access(path_.c_str(), W_OK) == 0 ? ""
                                            : fmt::format("{} cannot be written: {}", path_,
                                                          std::generic_category().message(errno));
}

FileView StoredFile::look() const {
    FileView view;
    if (path_.empty()) {
        view.problem = "is too long";
        return view;
    }
    PropertyListFile file = loadPropertyList(path_);
    view.state = file.state;
    view.problem = std::move(file.problem);
    view.fingerprint = file.fingerprint;
    if (file.state == State::Whole) {
        view.otherKeys = otherKeysOf(file.root.get());
        StoredServices stored = servicesIn(file.root.get());
        view.services = std::move(stored.services);
        view.isDirectory = stored.isDirectory;
    }
    return view;
}

uint64_t StoredFile::fingerprint() const {
    std::string content;
    return system::readRegularFile(path_, std::numeric_limits<int32_t>::max(), content)
               ? 0
               : fingerprintOf(content);
}

void StoredFile::write(const Snapshot& services, const std::string& otherKeys) const {
    if (path_.empty()) {
        throw std::system_error(std::make_error_code(std::errc::filename_too_long),
                                "cannot write the configuration file");
    }
    const auto document = documentOf(services, otherKeys);
    replaceFile(path_, bytesOf(document.get()));
}

std::string StoredFile::copyAside() const {
    return putAside(contentOf(path_));
}

std::string StoredFile::putAside(const Snapshot& services, const std::string& otherKeys) const {
    const auto document = documentOf(services, otherKeys);
    return putAside(bytesOf(document.get()));
}

std::string StoredFile::putAside(std::string_view content) const {
    const std::string prefix = path_ + kAside;
    const std::vector<uint64_t> numbers = copiesAside(path_);
    const uint64_t last = numbers.empty() ? 0 : numbers.back();
    std::string name = prefix + std::to_string(last + 1);
    makeNewFile(name, content);
    // The new one is not among the numbers.
    for (std::size_t i = 0; i + kCopiesAside <= numbers.size(); ++i) {
        std::error_code ignored;
        fs::remove(prefix + std::to_string(numbers[i]), ignored);
    }
    return name;
}

void StoredFile::make() const {
    if (path_.empty()) {
        throw std::runtime_error(problem({}));
    }
    if (exists(path_)) {
        throw std::runtime_error(path_ + " exists already and is left as it is");
    }
    if (exists(recordPathOf(path_))) {
        throw std::runtime_error(
            fmt::format("nothing made: the resident host will write {} from its record {}", path_,
                        recordPathOf(path_)));
    }
    if (exists(backup())) {
        const PropertyListFile copy = loadPropertyList(backup());
        throw std::runtime_error(
            copy.state == State::Whole
                ? fmt::format("nothing made: the plug-in will restore {} from its backup {}", path_,
                              backup())
                : fmt::format("nothing made: there is a backup {}, but it {}; move it away first",
                              backup(), copy.problem));
    }
    makeNewFile(path_, emptyDocument(), system::directoryOf(backup()));
}

StoredFile::Contents StoredFile::read() const {
    const PropertyListFile file = loadPropertyList(path_);
    if (file.state == State::Whole) {
        return {servicesIn(file.root.get()).services, otherKeysOf(file.root.get()),
                "read " + path_};
    }
    const std::string problem = fmt::format("{} {}", path_, file.problem);
    if (file.state == State::Unusable) {
        throw std::runtime_error("cannot list the services: " + problem);
    }
    const PropertyListFile copy = loadPropertyList(backup());
    if (copy.state != State::Whole) {
        throw std::runtime_error(fmt::format("cannot list the services: {}, and its backup {} {}",
                                             problem, backup(), copy.problem));
    }
    return {servicesIn(copy.root.get()).services, otherKeysOf(copy.root.get()),
            fmt::format("{}; read its backup {}", problem, backup())};
}

}  // namespace qv::host
