// SPDX-License-Identifier: Apache-2.0

#include "namingService/DirectoryModel.h"

#include <sys/stat.h>

#include <utility>

#include "common/StoredDocument.h"

namespace qv::fuzz {

DirectoryModel::DirectoryModel(std::string path) : path_(std::move(path)) {}

void DirectoryModel::initialize() {
    memory.clear();
    loaded_.reset();
    for (int restores = 0; !mainFile || !mainFile->isGood; ++restores) {
        if (isDirectory || !backup || restores == 3) {
            return;
        }
        mainFile = backup;
    }
    loaded_ = mainFile;
    memory = mainFile->services;
    inode_ = inode();
}

void DirectoryModel::finalize() {
    descriptors -= isOpen_ ? 1 : 0;
    isOpen_ = false;
}

void DirectoryModel::registerServices(const std::vector<StoredService>& request) {
    bool isChanged = false;
    for (const StoredService& service : request) {
        const auto [entry, isNew] = memory.emplace(service.id.value_or(0), service);
        if (!isNew && entry->second.address.value_or("") == service.address.value_or("")) {
            continue;
        }
        entry->second = service;
        isChanged = true;
    }
    if (isChanged && loaded_) {
        if (std::optional<Document> saved = savedAfter(*loaded_, memory)) {
            save(std::move(*saved));
        }
    }
}

ino_t DirectoryModel::inode() const {
    struct stat status = {};
    return ::stat(path_.c_str(), &status) == 0 ? status.st_ino : 0;
}

// Opens the file. A descriptor that was open before stays open.
void DirectoryModel::open() {
    isOpen_ = !isDirectory;
    descriptors += isOpen_ ? 1 : 0;
}

void DirectoryModel::save(Document saved) {
    if (mainFile) {
        backup = mainFile;
    }
    if (!isOpen_) {
        if (!mainFile) {
            return;
        }
        open();
    }
    if ((!mainFile && !isDirectory) || inode_ != inode()) {
        open();
        inode_ = inode();
    }
    if (isOpen_) {
        mainFile = std::move(saved);
    }
}

}  // namespace qv::fuzz
