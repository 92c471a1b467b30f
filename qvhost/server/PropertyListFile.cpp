// SPDX-License-Identifier: Apache-2.0

#include "server/PropertyListFile.h"

#include <QvCFDictionary.h>
#include <QvSystem/Files.h>
#include <fmt/format.h>

#include <cstddef>
#include <limits>
#include <new>
#include <system_error>
#include <utility>

namespace qv::host {

namespace {

using State = FileView::State;

// The plug-in takes a larger file for a damaged one.
constexpr std::size_t kLongestFile = std::numeric_limits<std::int32_t>::max();

PropertyListFile failure(State state, std::string problem, uint64_t fingerprint = 0) {
    return {state, {}, std::move(problem), fingerprint};
}

}  // namespace

PropertyListFile loadPropertyList(const std::string& path) {
    constexpr char kNoDictionary[] = "is no property list with a dictionary as its root";
    std::string document;
    const std::error_code error = system::readRegularFile(path, kLongestFile, document);
    if (error == std::errc::no_such_file_or_directory) {
        return failure(State::Missing, "does not exist");
    }
    if (error == std::errc::invalid_argument) {
        return failure(State::Unusable, kNoDictionary);
    }
    if (error && error != std::errc::file_too_large) {
        return failure(State::Unusable, fmt::format("cannot be read: {}", error.message()));
    }
    if (error) {
        return failure(State::Damaged, kNoDictionary);
    }
    const uint64_t fingerprint = fingerprintOf(document);
    if (document.empty()) {
        return failure(State::Damaged, kNoDictionary, fingerprint);
    }
    bool memoryRanOut = false;
    qor::kevra::CFHolder<CFDictionaryRef> root =
        qor::kevra::readDictionary(document.data(), document.size(), &memoryRanOut);
    if (memoryRanOut) {
        throw std::bad_alloc();
    }
    return root ? PropertyListFile{State::Whole, std::move(root), "", fingerprint}
                : failure(State::Damaged, kNoDictionary, fingerprint);
}

}  // namespace qv::host
