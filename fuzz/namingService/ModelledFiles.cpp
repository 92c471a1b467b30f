// SPDX-License-Identifier: Apache-2.0

#include "namingService/ModelledFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "common/StoredDocument.h"
#include "support/ConfigurationDocuments.h"
#include "support/Files.h"
#include "support/Require.h"
#include "support/ScratchDirectories.h"

namespace qv::fuzz {
namespace {

using tests::kConfigurationFile;

struct Scratch {
    Scratch() { std::filesystem::create_directory(directory.path("backup")); }

    tests::ScratchDirectories directory;
    std::string file = directory.path(kConfigurationFile);
    std::string backup = directory.path("backup/") + kConfigurationFile;
};

const Scratch& scratch() {
    static const Scratch scratch;
    return scratch;
}

int lowestFreeDescriptor() {
    const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(descriptor);
    return descriptor;
}

std::optional<std::string> bytesOf(const std::optional<Document>& document) {
    return document ? std::optional(document->bytes) : std::nullopt;
}

}  // namespace

ModelledFiles::ModelledFiles() : model(scratch().file) {
    std::filesystem::remove(scratch().file);
    std::filesystem::remove(scratch().backup);
    lowestFreeDescriptor_ = lowestFreeDescriptor();
}

ModelledFiles::~ModelledFiles() {
    // A look at every descriptor takes as long as the rest of the check.
    if (model.descriptors == 0) {
        require(lowestFreeDescriptor() == lowestFreeDescriptor_, "a file is left open");
        return;
    }
    const auto open = tests::descriptorsBelow(scratch().directory.path());
    require(open.size() == model.descriptors, "the number of open files differs from the model");
    for (const int descriptor : open) {
        ::close(descriptor);
    }
}

void ModelledFiles::write(std::string bytes) {
    if (model.isDirectory) {
        remove();
    }
    tests::writeFile(scratch().file, bytes);
    model.mainFile = documentOf(std::move(bytes));
}

void ModelledFiles::replace(std::string bytes) {
    // The new file is written before the old one is removed, so that it has another inode.
    tests::writeFile(scratch().file + ".new", bytes);
    remove();
    std::filesystem::rename(scratch().file + ".new", scratch().file);
    model.mainFile = documentOf(std::move(bytes));
}

void ModelledFiles::replaceByDirectory() {
    remove();
    std::filesystem::create_directory(scratch().file);
    model.isDirectory = true;
}

void ModelledFiles::remove() {
    std::filesystem::remove(scratch().file);
    model.mainFile.reset();
    model.isDirectory = false;
}

void ModelledFiles::writeBackup(std::string bytes) {
    tests::writeFile(scratch().backup, bytes);
    model.backup = documentOf(std::move(bytes));
}

void ModelledFiles::removeBackup() {
    std::filesystem::remove(scratch().backup);
    model.backup.reset();
}

void ModelledFiles::check() const {
    require(tests::contentOf(scratch().file) == bytesOf(model.mainFile),
            "the file differs from the model");
    require(tests::contentOf(scratch().backup) == bytesOf(model.backup),
            "the backup differs from the model");
}

}  // namespace qv::fuzz
