// SPDX-License-Identifier: Apache-2.0

#include "qvhost/HostFiles.h"

#include <CoreFoundation/CoreFoundation.h>
#include <QvSystem/Files.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <utility>
#include <vector>

#include "common/StoredDocument.h"
#include "platform/CoreFoundation/Objects.h"
#include "support/ConfigurationDocuments.h"
#include "support/EnvironmentVariable.h"
#include "support/Files.h"
#include "support/LongestFile.h"
#include "support/TemporaryDirectory.h"

namespace qv::fuzz {
namespace {

namespace fs = std::filesystem;
using Kind = Tree::Kind;

constexpr char kFile[] = "config/namingService.conf.plist";
constexpr char kBackup[] = "config/backup/namingService.conf.plist";
constexpr char kRecord[] = "config/namingService.conf.plist.record";
constexpr char kLog[] = "config/namingService.conf.plist.record-wal";

struct Scratch {
    tests::TemporaryDirectory directory;
    tests::EnvironmentVariable configuration{"QV_CONFIG_DIR", directory.path("config")};
    tests::EnvironmentVariable log{"QV_LOG_DIR", directory.path("log")};
};

const std::string& root() {
    static const Scratch scratch;
    return scratch.directory.path();
}

std::string pathOf(const std::string& name) {
    return root() + '/' + name;
}

// Lets the test write files while the host cannot.
class Unlimited {
    tests::LongestFile limit_{RLIM_INFINITY};
};

// Returns the content of the file, or nothing if it is no file that can be read.
std::optional<std::string> contentOf(const std::string& path) {
    constexpr std::size_t kLongest = 1 << 30;
    std::string content;
    return system::readRegularFile(path, kLongest, content) ? std::nullopt
                                                            : std::optional(std::move(content));
}

std::optional<std::string> bytesOf(const Image& image, const char* name) {
    const auto found = image.files.find(name);
    return found == image.files.end() ? std::nullopt : std::optional(found->second);
}

bool isService(const Tree& element) {
    const Tree* const id = find(&element, u"id");
    const Tree* const address = find(&element, u"address");
    return id != nullptr && id->sint32 && address != nullptr && address->kind == Kind::kString &&
           isWellFormed(address->text);
}

// Tells whether the tree is the same after it was written to a document and read.
bool isLasting(const Tree& tree) {
    return !cannotBeRead(tree) && !anyNode(tree, [](const Tree& node) {
        return node.kind == Kind::kReal || node.kind == Kind::kDate ||
               node.text.substr(0, 1) == u"\uFEFF" || !isWellFormed(node.text);
    }) && readBack(tree) == tree;
}

}  // namespace

FileContent contentIn(const std::string& bytes) {
    FileContent content;
    const Document document = documentOf(bytes);
    if (!document.isGood) {
        return content;
    }
    content.isWhole = true;
    for (const auto& [id, service] : document.services) {
        content.services[id] = service.address.value_or("");
    }
    content.otherKeys = treeOf(tests::readDocument(bytes).get());
    const Tree* const list = find(find(&content.otherKeys, u"Address"), u"services");
    content.isDirectory = list != nullptr && list->kind == Kind::kArray &&
                          std::all_of(list->elements.begin(), list->elements.end(), isService);
    std::vector<Tree>& entries = content.otherKeys.elements;
    for (std::size_t entry = 0; entry < entries.size(); entry += 2) {
        if (entries[entry].text == u"Address") {
            const auto key = entries.begin() + static_cast<std::ptrdiff_t>(entry);
            entries.erase(key, key + 2);
            break;
        }
    }
    content.canBeWritten =
        isLasting(content.otherKeys) && asStored(document.services) == document.services;
    return content;
}

std::optional<std::string> Image::file() const {
    return bytesOf(*this, kFile);
}

std::optional<std::string> Image::backup() const {
    return bytesOf(*this, kBackup);
}

bool Image::isFileADirectory() const {
    return directories.count(kFile) != 0;
}

bool Image::hasLog() const {
    return files.count(kLog) != 0;
}

void Image::setFile(const std::string& bytes) {
    files[kFile] = bytes;
}

void Image::setBackup(const std::string& bytes) {
    files[kBackup] = bytes;
}

void Image::setNewFile(const std::string& bytes) {
    files["config/.namingService.conf.plist.new"] = bytes;
}

HostFiles::HostFiles() {
    restore({});
}

HostFiles::~HostFiles() {
    // The plug-in leaves the descriptors of replaced files open.
    for (const int descriptor : tests::descriptorsBelow(root() + "/config")) {
        ::close(descriptor);
    }
}

std::string HostFiles::path() {
    return pathOf(kFile);
}

std::optional<std::string> HostFiles::file() {
    return contentOf(path());
}

std::optional<std::string> HostFiles::backup() {
    return contentOf(pathOf(kBackup));
}

bool HostFiles::isFileADirectory() {
    return fs::is_directory(path());
}

Image HostFiles::image() {
    Image image;
    for (const auto& entry : fs::recursive_directory_iterator(pathOf("config"))) {
        const std::string name = entry.path().string().substr(root().size() + 1);
        if (entry.is_regular_file()) {
            image.files[name] = contentOf(entry.path().string()).value_or("");
        } else if (name != "config/backup") {
            image.directories[name] = true;
        }
    }
    if (image.file()) {
        image.inode = tests::inodeOf(path());
    }
    return image;
}

void HostFiles::restore(const Image& image) {
    const Unlimited unlimited;
    fs::remove_all(pathOf("config"));
    fs::create_directories(pathOf("config/backup"));
    fs::create_directory(pathOf("log"));
    for (const auto& [name, isThere] : image.directories) {
        fs::create_directory(pathOf(name));
    }
    for (const auto& [name, bytes] : image.files) {
        tests::writeFile(pathOf(name), bytes);
    }
}

RecordContent HostFiles::recordIn(const Image& image) {
    using host::RecordError;
    const Unlimited unlimited;
    RecordContent record;
    if (image.directories.count(kRecord) != 0) {
        record.kind = RecordContent::Kind::Unopenable;
        return record;
    }
    if (!bytesOf(image, kRecord)) {
        return record;
    }
    const std::string directory = pathOf("probe");
    fs::remove_all(directory);
    fs::create_directory(directory);
    tests::writeFile(directory + "/record", *bytesOf(image, kRecord));
    if (const auto log = bytesOf(image, kLog)) {
        tests::writeFile(directory + "/record-wal", *log);
    }
    try {
        record.contents = host::Record(directory + "/record").read();
        record.kind =
            record.contents.revision == 0 ? RecordContent::Kind::None : RecordContent::Kind::Usable;
        for (const host::Service& service : record.contents.services) {
            record.services[service.id] = service.address;
        }
    } catch (const RecordError& error) {
        record.kind = error.kind() == RecordError::Kind::Damaged ? RecordContent::Kind::Damaged
                                                                 : RecordContent::Kind::Unopenable;
    }
    return record;
}

void HostFiles::write(const std::string& bytes) {
    const Unlimited unlimited;
    if (fs::is_directory(path())) {
        remove();
    }
    tests::writeFile(path(), bytes);
}

void HostFiles::replace(const std::string& bytes) {
    const Unlimited unlimited;
    remove();
    tests::replaceFile(path(), bytes);
}

void HostFiles::replaceByDirectory() {
    remove();
    fs::create_directory(path());
}

void HostFiles::remove() {
    fs::remove(path());
}

void HostFiles::writeBackup(const std::string& bytes) {
    const Unlimited unlimited;
    tests::writeFile(pathOf(kBackup), bytes);
}

void HostFiles::removeBackup() {
    fs::remove(pathOf(kBackup));
}

void HostFiles::damageRecord(unsigned way) {
    const Unlimited unlimited;
    const std::string bytes = contentOf(pathOf(kRecord)).value_or("");
    fs::remove(pathOf(kRecord));
    if (way % 5 != 3) {
        fs::remove(pathOf(kLog));
    }
    switch (way % 5) {
        case 0:
            return tests::writeFile(pathOf(kRecord), std::string(4096, '#'));
        case 1:
            return tests::writeFile(pathOf(kRecord), "");
        case 2:
            return;
        case 3:
            return tests::writeFile(pathOf(kRecord), bytes.substr(0, bytes.size() / 2));
        default:
            fs::create_directory(pathOf(kRecord));
    }
}

std::string mixtureOf(const std::string& old, const std::string& recent, std::size_t length) {
    std::string mixture = recent.substr(0, length);
    if (old.size() > mixture.size()) {
        mixture += old.substr(mixture.size());
    }
    return mixture;
}

}  // namespace qv::fuzz
